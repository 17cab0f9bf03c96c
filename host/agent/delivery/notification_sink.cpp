#include "host/agent/delivery/notification_sink.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace vrx {

namespace {

constexpr std::size_t KEY_DIGITS = 10;

const OidVector COLD_START = {1, 3, 6, 1, 6, 3, 1, 1, 5, 1};

}  // namespace

std::string trapDestinationKey(const std::string& index) {
    const bool isNumber = !index.empty() && index.size() < KEY_DIGITS &&
                          std::all_of(index.begin(), index.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
    return isNumber ? std::string(KEY_DIGITS - index.size(), '0') + index : index;
}

std::set<std::string> chosenKeys(const TrapDestinationMap& considered, const std::list<tTrapDestInfo>& chosen) {
    std::set<std::string> keys;
    for (const tTrapDestInfo& info : chosen) {
        std::string key = trapDestinationKey(info.index);
        if (considered.count(key) != 0) keys.insert(std::move(key));
    }
    return keys;
}

void NotificationSink::sendColdStart() {
    auto trap = std::make_shared<Notification>();
    trap->oid = COLD_START;
    const auto all = destinations();
    std::list<tTrapDestInfo> chosen;
    for (const auto& entry : *all) chosen.push_back(entry.second);
    submit(NotificationOrigin(), *all, chosen, std::move(trap), nullptr);
}

}  // namespace vrx
