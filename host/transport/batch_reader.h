// Reads a list that comes in batches, each asked for after the last number of the one before, to its end.
//
//     const BatchesRead read = readBatches(0, [&](unsigned long long after) -> std::optional<Batch> {
//         ...  // asks for the records after that number and takes them
//         if (records.empty()) return std::nullopt;  // nothing more is wanted
//         return Batch{records.size(), numberOf(records.back())};
//     });
//     if (read.end != BatchEnd::Complete) ...
//
// Without any other header of the host: hosts that have no backend client of ours read tables with it, too.
#pragma once

#include <cstddef>
#include <optional>

namespace vrx {

// A list of more records is taken for one without end, which would fill the memory.
constexpr std::size_t LONGEST_LIST = 1'000'000;

struct Batch {
    std::size_t records = 0;
    unsigned long long last = 0;  // number to go on after
};

enum class BatchEnd {
    Complete,
    NoProgress,  // the batch asked for after `after` ends with a number that is not higher
    TooMany,     // more records than LONGEST_LIST
};

struct BatchesRead {
    BatchEnd end = BatchEnd::Complete;
    unsigned long long after = 0;  // what the last batch was asked for with
};

// Calls `next(after)` until it returns nothing, the first time with the number given. What it throws ends the reading.
template <typename Next>
BatchesRead readBatches(unsigned long long after, const Next& next) {
    std::size_t records = 0;
    for (;;) {
        const std::optional<Batch> batch = next(after);
        if (!batch) return {BatchEnd::Complete, after};
        if (batch->last <= after) return {BatchEnd::NoProgress, after};
        records += batch->records;
        if (records > LONGEST_LIST) return {BatchEnd::TooMany, after};
        after = batch->last;
    }
}

}  // namespace vrx
