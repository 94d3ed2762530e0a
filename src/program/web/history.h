// The past hour in memory, for the page: each figure of each report, as numbers of four bytes.
//
// Reports stand in blocks of BLOCK_REPORTS; a block has one row of numbers for each thing that was
// measured while it was filled (a core, an interface, a directory, a process). What comes and goes,
// like the interfaces of containers, takes room only where it was there. A machine with 8 cores, 2
// interfaces, 3 directories and 3 processes takes 0.7 MB for an hour of one report a second.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "report.h"

namespace corvane::program {

class History {
public:
    static constexpr size_t BLOCK_REPORTS = 225;
    static constexpr size_t MAX_BYTES = size_t{8} * 1024 * 1024;

    /// Adds a report. What is older than an hour goes (but 60 reports stay however far apart they
    /// are), and so does what does not fit into MAX_BYTES.
    void Append(const Report& report);

    /// The reports later than `since`, seconds since 1970.
    size_t CountSince(std::time_t since) const;

    /// The reports later than `since` as members of a JSON object, without its braces:
    /// "time":[...],"cpu":{...},... shaped like the report of ReportToJson with a column, oldest
    /// first, in the place of each figure; null for what was not measured. "first" beside columns
    /// is the place in "time" that they begin at; they end with the last figure. In ASCII.
    std::string Json(std::time_t since) const;

    /// Memory taken, in bytes.
    size_t Bytes() const;

private:
    enum class Kind : uint8_t {
        Cpu,
        Memory,
        Receive,
        Transmit,
        Core,
        Interface,
        Directory,
        Process
    };
    using Key = std::pair<Kind, std::string>;
    struct Block {
        std::vector<std::time_t> times;
        std::map<Key, std::vector<float>> rows;  // a kind's figures, report after report
        size_t bytes = 0;                        // counted when it is full
    };
    struct Span;

    static void Put(Block& block, Kind kind, const std::string& name,
                    std::initializer_list<float> figures);
    static void PutReport(Block& block, const Report& report);
    static size_t BytesOf(const Block& block);
    void DropOld(uint64_t interval_seconds);
    size_t First(std::time_t since) const;

    std::deque<Block> m_blocks;
    size_t m_reports = 0;  // in all blocks
    size_t m_limit = 0;    // reports that count; older ones go with their block
};

}  // namespace corvane::program
