#include "text_file.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

namespace corvane {

namespace {

constexpr size_t BLOCK = 16384;

struct CloseStream {
    void operator()(FILE* stream) const { fclose(stream); }
};

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

}  // namespace

PathTrouble Trouble(const char* verb, const std::string& path, int error_number) {
    return {error_number, std::string("cannot ") + verb + " " + path + ": " +
                              std::generic_category().message(error_number)};
}

std::string ReadWholeFile(const std::string& path, PathTrouble* trouble, size_t most) {
    const auto fail = [&](const char* verb) {
        if (trouble != nullptr) {
            *trouble = Trouble(verb, path, errno);
        }
        return std::string();
    };
    const std::unique_ptr<FILE, CloseStream> stream(fopen(path.c_str(), "re"));
    if (stream == nullptr) {
        return fail("open");
    }
    setvbuf(stream.get(), nullptr, _IONBF, 0);  // straight into the text
    std::string text;
    while (text.size() < most && feof(stream.get()) == 0) {
        const size_t length = text.size();
        text.resize(length + std::min(BLOCK, most - length));
        text.resize(length + fread(text.data() + length, 1, text.size() - length, stream.get()));
        if (ferror(stream.get()) != 0) {
            return fail("read");
        }
    }
    return text;
}

std::vector<std::string> NamesIn(const std::string& folder) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, CloseFolder> entries(opendir(folder.c_str()));
    while (const dirent* const entry = entries == nullptr ? nullptr : readdir(entries.get())) {
        if (entry->d_name[0] != '.') {
            names.emplace_back(entry->d_name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string WhyNothingCameOf(const std::string& path, const std::string& otherwise) {
    PathTrouble trouble;
    ReadWholeFile(path, &trouble);
    return trouble.text.empty() ? otherwise : trouble.text;
}

}  // namespace corvane
