#include "web/history.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <set>

#include "json_text.h"
#include "utf8.h"

namespace corvane::program {

namespace {

constexpr float NOT_MEASURED = std::numeric_limits<float>::quiet_NaN();
constexpr uint64_t SECONDS_KEPT = 3600;
constexpr size_t MIN_REPORTS = 60;
constexpr size_t NODE_BYTES = 128;  // of a map's node with a short name

/// The figures of a kind, in the order in which they are put, as they are called in a report; rows
/// that stand in a list are told apart by `name`.
struct Shape {
    const char* name;
    std::vector<const char*> figures;
};

const Shape& ShapeOf(size_t kind) {
    static const std::array<Shape, 8> shapes = {
        {{nullptr, {"limit_percent", "peak_percent", "latest_percent"}},
         {nullptr, {"used_mib", "total_mib"}},
         {nullptr, {"peak_bytes_per_second"}},
         {nullptr, {"peak_bytes_per_second"}},
         {"name", {"percent"}},
         {"name", {"receive_bytes_per_second", "transmit_bytes_per_second"}},
         {"directory",
          {"busy_percent", "operations_per_second", "used_bytes", "available_bytes",
           "total_bytes"}},
         {"process", {"cpu_peak_percent", "busiest_thread_peak_percent", "resident_mib"}}}};
    return shapes.at(kind);
}

template <typename Value>
float Figure(const FamilyStatus& status, Value value) {
    return status.HasFigures() ? static_cast<float>(value) : NOT_MEASURED;
}

template <typename Value>
float Optional(const FamilyStatus& status, const std::optional<Value>& value) {
    return value ? Figure(status, *value) : NOT_MEASURED;
}

template <typename Number>
void AppendNumber(std::string& text, Number value) {
    std::array<char, 32> digits = {};
    text.append(digits.data(),
                std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr);
}

void AppendFigure(std::string& text, float figure) {
    constexpr float WHOLE = 1 << 24;  // up to here a float holds every whole number
    if (std::isnan(figure)) {
        text += "null";
    } else if (std::fabs(figure) < WHOLE && std::trunc(figure) == figure) {
        AppendNumber(text, static_cast<int32_t>(figure));  // far faster
    } else {
        AppendNumber(text, figure);
    }
}

}  // namespace

/// What Json writes: the reports from number `first` on, and where.
struct History::Span {
    const std::deque<Block>& blocks;
    size_t first;
    std::string text = {};

    using Row = std::pair<size_t, std::vector<float>>;

    void Times() {
        text += "\"time\":[";
        size_t skip = first;
        for (const Block& block : blocks) {
            for (size_t i = std::min(skip, block.times.size()); i < block.times.size(); ++i) {
                AppendNumber(text, static_cast<int64_t>(block.times[i]));
                text += ',';
            }
            skip -= std::min(skip, block.times.size());
        }
        CloseList(']');
    }

    /// The figures of a row, report after report, without the reports before the first one and
    /// after the last one that measured something; and the number of those before.
    Row Gather(const Key& key) const {
        const size_t width = ShapeOf(static_cast<size_t>(key.first)).figures.size();
        std::vector<float> all;
        size_t reports = 0;
        size_t begin = 0;
        for (const Block& block : blocks) {
            const auto found = block.rows.find(key);
            if (found != block.rows.end()) {
                begin = all.empty() ? reports : begin;
                all.resize((reports - begin) * width, NOT_MEASURED);
                all.insert(all.end(), found->second.begin(), found->second.end());
            }
            reports += block.times.size();
        }
        const auto measured = [](float figure) { return !std::isnan(figure); };
        const auto last = std::find_if(all.rbegin(), all.rend(), measured).base() - all.begin();
        all.resize((static_cast<size_t>(last) + width - 1) / width * width);
        const size_t before = first > begin ? std::min((first - begin) * width, all.size()) : 0;
        const auto start =
            std::find_if(all.begin() + static_cast<ptrdiff_t>(before), all.end(), measured) -
            all.begin();
        const size_t skipped = static_cast<size_t>(start) / width;
        all.erase(all.begin(), all.begin() + static_cast<ptrdiff_t>(skipped * width));
        return {all.empty() ? 0 : begin + skipped - first, std::move(all)};
    }

    /// The number of reports before a row's columns, and these, in braces but for the opening one.
    void Columns(Kind kind, const Row& row) {
        const std::vector<const char*>& figures = ShapeOf(static_cast<size_t>(kind)).figures;
        const auto& [before, values] = row;
        const size_t width = figures.size();
        text += "\"first\":";
        AppendNumber(text, before);
        for (size_t figure = 0; figure < width; ++figure) {
            text.append(",\"").append(figures[figure]).append("\":[");
            for (size_t place = figure; place < values.size(); place += width) {
                AppendFigure(text, values[place]);
                text += ',';
            }
            CloseList(']');
        }
        text += '}';
    }

    void Object(const char* name, Kind kind) {
        text.append("\"").append(name).append("\":{");
        Columns(kind, Gather({kind, ""}));
    }

    void List(const char* name, Kind kind) {
        std::set<std::string> names;
        for (const Block& block : blocks) {
            for (auto row = block.rows.lower_bound({kind, ""});
                 row != block.rows.end() && row->first.first == kind; ++row) {
                names.insert(row->first.second);
            }
        }
        text.append("\"").append(name).append("\":[");
        for (const std::string& name_of_row : names) {
            const Row row = Gather({kind, name_of_row});
            if (!row.second.empty()) {
                text.append("{\"").append(ShapeOf(static_cast<size_t>(kind)).name).append("\":");
                text += JsonText(name_of_row).Text();
                text += ',';
                Columns(kind, row);
                text += ',';
            }
        }
        CloseList(']');
    }

    /// Closes what holds values that a comma follows each.
    void CloseList(char bracket) {
        if (text.back() == ',') {
            text.pop_back();
        }
        text += bracket;
    }

    void Reopen() { text.back() = ','; }
};

void History::Put(Block& block, Kind kind, const std::string& name,
                  std::initializer_list<float> figures) {
    std::vector<float>& row = block.rows[{kind, ValidUtf8(name)}];
    const size_t before = (block.times.size() - 1) * figures.size();
    if (row.size() <= before) {  // else two names are the same text
        row.resize(before, NOT_MEASURED);
        row.insert(row.end(), figures.begin(), figures.end());
    }
}

void History::PutReport(Block& block, const Report& report) {
    const CpuFigures& cpu = report.cpu;
    Put(block, Kind::Cpu, "",
        {Figure(cpu.status, 100 * cpu.core_number), Figure(cpu.status, cpu.peak_percent),
         Optional(cpu.status, cpu.latest_percent)});
    for (const CoreFigures& core : cpu.cores) {
        Put(block, Kind::Core, core.name, {static_cast<float>(core.percent)});
    }
    const MemoryFigures& memory = report.memory;
    Put(block, Kind::Memory, "",
        {Figure(memory.status, memory.used_mib), Figure(memory.status, memory.total_mib)});
    const NetworkFigures& network = report.network;
    Put(block, Kind::Receive, "", {Figure(network.status, network.receive.bytes_per_second)});
    Put(block, Kind::Transmit, "", {Figure(network.status, network.transmit.bytes_per_second)});
    for (const InterfaceFigures& row : network.interfaces) {
        Put(block, Kind::Interface, row.name,
            {static_cast<float>(row.receive_bytes_per_second),
             static_cast<float>(row.transmit_bytes_per_second)});
    }
    for (const DirectoryFigures& row : report.directories) {
        Put(block, Kind::Directory, row.directory,
            {Figure(row.io, row.busy_percent), Figure(row.io, row.operations_per_second),
             Figure(row.space, row.used_bytes), Figure(row.space, row.available_bytes),
             Figure(row.space, row.total_bytes)});
    }
    for (const ProcessFigures& row : report.processes) {
        Put(block, Kind::Process, row.target,
            {Figure(row.cpu, row.cpu_peak_percent), Optional(row.cpu, row.thread_peak_percent),
             Figure(row.memory, row.resident_mib)});
    }
}

void History::Append(const Report& report) {
    if (m_blocks.empty() || m_blocks.back().times.size() == BLOCK_REPORTS) {
        if (!m_blocks.empty()) {
            for (auto& [key, row] : m_blocks.back().rows) {
                row.shrink_to_fit();
            }
            m_blocks.back().bytes = BytesOf(m_blocks.back());
        }
        m_blocks.emplace_back();
        m_blocks.back().times.reserve(BLOCK_REPORTS);
    }
    m_blocks.back().times.push_back(std::chrono::system_clock::to_time_t(report.time));
    ++m_reports;
    DropOld(report.interval_seconds);
    PutReport(m_blocks.back(), report);
}

void History::DropOld(uint64_t interval_seconds) {
    m_limit = std::max<size_t>(MIN_REPORTS, SECONDS_KEPT / std::max<uint64_t>(interval_seconds, 1));
    while (m_blocks.size() > 1 &&
           (m_reports - m_blocks.front().times.size() >= m_limit || Bytes() > MAX_BYTES)) {
        m_reports -= m_blocks.front().times.size();
        m_blocks.pop_front();
    }
}

size_t History::BytesOf(const Block& block) {
    size_t bytes = sizeof(block) + block.times.capacity() * sizeof(std::time_t);
    for (const auto& [key, row] : block.rows) {
        bytes += NODE_BYTES + key.second.size() + row.capacity() * sizeof(float);
    }
    return bytes;
}

size_t History::Bytes() const {
    size_t bytes = m_blocks.empty() ? 0 : BytesOf(m_blocks.back());
    for (const Block& block : m_blocks) {
        bytes += block.bytes;
    }
    return bytes;
}

/// Of all reports in blocks, the number of the first that is later than `since` and counts.
size_t History::First(std::time_t since) const {
    size_t first = m_reports;
    for (auto block = m_blocks.rbegin(); block != m_blocks.rend(); ++block) {
        for (auto time = block->times.rbegin(); time != block->times.rend(); ++time) {
            if (*time <= since || m_reports - first == m_limit) {
                return first;
            }
            --first;
        }
    }
    return first;
}

size_t History::CountSince(std::time_t since) const {
    return m_reports - First(since);
}

std::string History::Json(std::time_t since) const {
    Span span{m_blocks, First(since)};
    span.Times();
    span.text += ',';
    span.Object("cpu", Kind::Cpu);
    span.Reopen();
    span.List("cores", Kind::Core);
    span.text += "},";
    span.Object("memory", Kind::Memory);
    span.text += ",\"network\":{";
    span.Object("receive", Kind::Receive);
    span.text += ',';
    span.Object("transmit", Kind::Transmit);
    span.text += ',';
    span.List("interfaces", Kind::Interface);
    span.text += "},";
    span.List("directories", Kind::Directory);
    span.text += ',';
    span.List("processes", Kind::Process);
    return std::move(span.text);
}

}  // namespace corvane::program
