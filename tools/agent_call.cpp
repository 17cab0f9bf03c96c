#include "tools/agent_call.h"

#include <curl/curl.h>

#include <array>
#include <memory>

#include "host/base/product_root.h"

namespace vrx {

namespace {

constexpr long HTTP_OK = 200;

std::size_t append(const char* data, std::size_t size, std::size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
}

}  // namespace

std::string callAgent(const std::string& method, const std::string& path, const std::string& body,
                      std::chrono::seconds patience) {
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> call(curl_easy_init(), &curl_easy_cleanup);
    if (call == nullptr) throw AgentCallError("libcurl cannot be initialised");
    const std::string socket = productPath("state/agent.sock");
    std::string answer;
    std::array<char, CURL_ERROR_SIZE> reason{};
    curl_easy_setopt(call.get(), CURLOPT_UNIX_SOCKET_PATH, socket.c_str());
    curl_easy_setopt(call.get(), CURLOPT_URL, ("http://agent" + path).c_str());
    curl_easy_setopt(call.get(), CURLOPT_CUSTOMREQUEST, method.c_str());
    curl_easy_setopt(call.get(), CURLOPT_PROXY, "");
    curl_easy_setopt(call.get(), CURLOPT_TIMEOUT, static_cast<long>(patience.count()));
    curl_easy_setopt(call.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(call.get(), CURLOPT_ERRORBUFFER, reason.data());
    curl_easy_setopt(call.get(), CURLOPT_WRITEFUNCTION, &append);
    curl_easy_setopt(call.get(), CURLOPT_WRITEDATA, &answer);
    if (!body.empty() || method == "POST") {
        curl_easy_setopt(call.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        curl_easy_setopt(call.get(), CURLOPT_COPYPOSTFIELDS, body.c_str());
        curl_easy_setopt(call.get(), CURLOPT_CUSTOMREQUEST, method.c_str());
    }
    const CURLcode result = curl_easy_perform(call.get());
    if (result == CURLE_COULDNT_CONNECT) throw AgentAwayError("no agent can be reached at " + socket);
    if (result != CURLE_OK) {
        throw AgentCallError(socket + ": " + (reason[0] != '\0' ? reason.data() : curl_easy_strerror(result)));
    }
    long status = 0;
    curl_easy_getinfo(call.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status != HTTP_OK) {
        while (!answer.empty() && answer.back() == '\n') answer.pop_back();
        throw AgentCallError(answer.empty() ? "the agent answers " + std::to_string(status) : answer);
    }
    return answer;
}

}  // namespace vrx
