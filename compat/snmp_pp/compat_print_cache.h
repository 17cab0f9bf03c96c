// The text of a value, made at most once until the value changes. Part of this layer only; users of the value types
// include their headers instead.
//
// A copy of a value starts without text and reads nothing of the original's: that keeps copying a shared value safe
// while another thread prints it for the first time.
#ifndef COMPAT_SNMP_PP_COMPAT_PRINT_CACHE_H
#define COMPAT_SNMP_PP_COMPAT_PRINT_CACHE_H

#include <string>
#include <utility>

namespace Snmp_pp {

class CompatPrintCache {
public:
    CompatPrintCache() = default;
    CompatPrintCache(const CompatPrintCache&) {}  // NOLINT(modernize-use-equals-default): a copy prints itself anew
    ~CompatPrintCache() = default;

    CompatPrintCache& operator=(const CompatPrintCache& other) {
        if (this != &other) {
            drop();
        }
        return *this;
    }

    // The owner calls this wherever its value changes.
    void drop() { m_made = false; }

    // The text; `make` returns it as std::string and is called only when there is none.
    template <typename Make>
    const char* text(Make&& make) const {
        if (!m_made) {
            m_text = std::forward<Make>(make)();
            m_made = true;
        }
        return m_text.c_str();
    }

private:
    mutable std::string m_text;
    mutable bool m_made = false;
};

}  // namespace Snmp_pp

#endif
