// The files of the page, compiled into the program from src/program/page/ and the plot library.
#pragma once

#include <cstddef>
#include <string_view>

namespace corvane::program {

struct PageFile {
    std::string_view path;  ///< as it is asked for: "/page.js"
    const char* type;       ///< its Content-Type
    const char* tag;        ///< its ETag, which changes with its content
    const unsigned char* data;
    size_t size;
};

/// Null: there is none.
const PageFile* FindPageFile(std::string_view path);

}  // namespace corvane::program
