// Which rows of a table the backend's last events were about: a snapshot that shows the moment of one event becomes
// that of a later one when these rows are read again.
//
// Threads: any.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/base/mutex.h"

namespace vrx {

class EventRows {
public:
    static constexpr std::size_t MOST = 256;  // events that are known, the last ones

    // The event of that number changed that row and no other. An event is known with all those that came before it
    // one by one; a gap makes a new beginning.
    void add(std::uint64_t event, std::uint32_t row) noexcept;

    // Other rows may have changed, too: no event is known any more.
    void forget() noexcept;

    // How often that happened.
    std::uint64_t forgotten() const;

    // The rows, each once, that the events after `after` changed up to `upTo`; nothing when one of them is not known.
    std::optional<std::vector<std::uint32_t>> between(std::uint64_t after, std::uint64_t upTo) const;

private:
    mutable Mutex m_mutex;
    std::array<std::uint32_t, MOST> m_rows GUARDED_BY(m_mutex){};  // that of event N at N modulo MOST
    std::uint64_t m_first GUARDED_BY(m_mutex) = 1;                 // known event; after the last one: none is
    std::uint64_t m_last GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_forgotten GUARDED_BY(m_mutex) = 0;
};

}  // namespace vrx
