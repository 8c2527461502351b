#include "core/PeloraNetwork.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "core/PeloraRequest.h"
#include "pelora/PeloraApiAd.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/platform/FileSystem.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/RunLoop.h"
#include "pelora/platform/Services.h"
#include "support/PeloraPercent.h"
#include "support/PeloraTool.h"
#include "support/PeloraYYModel.h"

namespace {

using pelora::platform::Error;
using pelora::platform::HttpRequest;
using pelora::platform::HttpResponse;

// Created on first use from the main thread, kept until the SDK shuts down. Held through a
// pointer that is never freed so that no exit-time destructor joins a session thread.
std::shared_ptr<PeloraCoreSessionManager>& apiSessionSlot() {
    static auto* slot = new std::shared_ptr<PeloraCoreSessionManager>();
    return *slot;
}

std::shared_ptr<PeloraCoreSessionManager>& fileSessionSlot() {
    static auto* slot = new std::shared_ptr<PeloraCoreSessionManager>();
    return *slot;
}

// Hands work to the main run loop captured when the exchange started: the services may not
// be read from the session's thread.
void postToMain(const std::shared_ptr<pelora::platform::RunLoop>& loop,
                std::function<void()> task) {
    if (loop) loop->post(std::move(task));
}

std::string describe(const Error& error) {
    if (!error.description.empty()) return error.description;
    return "Error Domain=" + error.domain + " Code=" + std::to_string(error.code);
}

// The text a value shows in a query: texts as they are, numbers in decimal, booleans as 1/0.
// Last path component of a URL text, as the platform's path functions see it: trailing
// slashes ignored, everything after the last remaining slash.
std::string lastPathComponent(const std::string& text) {
    size_t end = text.size();
    while (end > 1 && text[end - 1] == '/') --end;
    std::string trimmed = text.substr(0, end);
    size_t slash = trimmed.rfind('/');
    if (slash == std::string::npos || trimmed.size() == 1) return trimmed;
    return trimmed.substr(slash + 1);
}

// A component that would leave the target directory is refused: the URL comes from the
// network and must never place a file outside our own directory.
bool isSafeFileName(const std::string& name) {
    if (name.empty() || name == "." || name == "..") return false;
    return name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

// ---- percent escaping ---------------------------------------------------------------------

// Letters, digits and "-._~/?" stay in query keys and values.
constexpr PeloraPercentEncoder kQueryEscape("-._~/?");

// Appends the escaped text to `out`: the one escaping routine behind both the public
// function and the query encoder, which calls it without building temporary strings.
void appendPercentEscaped(std::string& out, std::string_view text) {
    kQueryEscape.appendInBatches(out, text);
}

// Appends how a value reads in a query string (texts as they are, booleans as 1 and 0,
// numbers in their shortest form), escaped.
template <class V>
void appendQueryNumber(std::string& out, V number) {
    std::array<char, 32> buf{};
    auto r = std::to_chars(buf.data(), buf.data() + buf.size(), number);
    appendPercentEscaped(out,
                         std::string_view(buf.data(), static_cast<size_t>(r.ptr - buf.data())));
}

void appendQueryValue(std::string& out, const nlohmann::json& value) {
    switch (value.type()) {
        case nlohmann::json::value_t::string:
            return appendPercentEscaped(out, value.get_ref<const std::string&>());
        case nlohmann::json::value_t::boolean:
            return appendPercentEscaped(out, value.get<bool>() ? "1" : "0");
        case nlohmann::json::value_t::number_integer:
            return appendQueryNumber(out, value.get<int64_t>());
        case nlohmann::json::value_t::number_unsigned:
            return appendQueryNumber(out, value.get<uint64_t>());
        case nlohmann::json::value_t::number_float:
            return appendQueryNumber(out, value.get<double>());
        default:
            return appendPercentEscaped(out, value.dump());
    }
}

// The same text for a record's value read without building its dictionary.
void appendQueryValue(std::string& out, const PeloraYYValueRef& value) {
    if (value.text) return appendPercentEscaped(out, *value.text);
    if (value.type > PeloraYYEncodingType::Double) return appendQueryValue(out, value.other);
    const PeloraYYNumber& n = value.number;
    if (value.type == PeloraYYEncodingType::Bool) {
        return appendPercentEscaped(out, n.i != 0 ? "1" : "0");
    }
    switch (n.kind) {
        case PeloraYYNumber::Int:
            return appendQueryNumber(out, n.i);
        case PeloraYYNumber::UInt:
            return appendQueryNumber(out, n.u);
        case PeloraYYNumber::Real:
            return appendQueryNumber(out, n.d);
        case PeloraYYNumber::None:
            break;
    }
    out.push_back('0');
}

// The query string of a query record: what urlEncodeQuryWithDictionary makes of the record's
// dictionary, read straight from the record when it allows.
std::string encodeQueryRecord(const PeloraUrlQuery* query) {
    if (!query) return {};
    std::string out;
    out.reserve(256);
    const bool direct =
        plyy_modelVisitValues(*query, [&](std::string_view key, const PeloraYYValueRef& value) {
            if (!out.empty()) out.push_back('&');
            appendPercentEscaped(out, key);
            out.push_back('=');
            appendQueryValue(out, value);
        });
    if (!direct) return PeloraNetwork::urlEncodeQuryWithDictionary(plyy_modelToJSONObject(*query));
    return out;
}

}  // namespace

// ---- PeloraCoreSessionManager -----------------------------------------------------------------

std::shared_ptr<PeloraCoreSessionManager> PeloraCoreSessionManager::init() {
    return initWithConfig(pelora::platform::HttpSessionConfiguration{});
}

std::shared_ptr<PeloraCoreSessionManager> PeloraCoreSessionManager::initWithConfig(
    const pelora::platform::HttpSessionConfiguration& config) {
    std::shared_ptr<pelora::platform::HttpSession> session;
    const auto& factory = pelora::platform::services().http;
    if (factory) session = factory->createSession(config);
    return std::make_shared<PeloraCoreSessionManager>(PrivateTag{}, std::move(session));
}

std::shared_ptr<pelora::platform::HttpTask> PeloraCoreSessionManager::dataTaskWithRequest(
    HttpRequest request, pelora::platform::DataTaskCompletion completion) {
    if (!session_) return nullptr;
    return session_->dataTask(std::move(request), std::move(completion));
}

std::shared_ptr<pelora::platform::HttpTask> PeloraCoreSessionManager::downloadTaskWithRequest(
    HttpRequest request, pelora::platform::DownloadTaskCompletion completion) {
    if (!session_) return nullptr;
    return session_->downloadTask(std::move(request), std::move(completion));
}

// ---- PeloraNetwork: sessions ---------------------------------------------------------------

std::shared_ptr<PeloraCoreSessionManager> PeloraNetwork::apiSession() {
    auto& slot = apiSessionSlot();
    if (!slot) {
        // Answers and images share this session; each request carries its own bound.
        const auto limits = PeloraConstConfig::limits();
        pelora::platform::HttpSessionConfiguration config;
        config.maxBodyBytes = std::max(limits.answerBytes, limits.imageBytes);
        config.maxDownloadBytes = config.maxBodyBytes;
        slot = PeloraCoreSessionManager::initWithConfig(config);
    }
    return slot;
}

std::shared_ptr<PeloraCoreSessionManager> PeloraNetwork::fileSession() {
    auto& slot = fileSessionSlot();
    if (!slot) {
        const auto limits = PeloraConstConfig::limits();
        pelora::platform::HttpSessionConfiguration config;
        config.maxBodyBytes = limits.answerBytes;
        config.maxDownloadBytes = limits.videoBytes;
        slot = PeloraCoreSessionManager::initWithConfig(config);
    }
    return slot;
}

void PeloraNetwork::shutdownSessions() {
    for (auto* slot : {&apiSessionSlot(), &fileSessionSlot()}) {
        if (*slot && (*slot)->session()) (*slot)->session()->invalidateAndCancel();
        slot->reset();
    }
}

// ---- PeloraNetwork: query encoding ---------------------------------------------------------

std::string PeloraNetwork::urlEncodeQuryWithDictionary(const nlohmann::json& dictionary) {
    std::string out;
    if (!dictionary.is_object()) return out;
    out.reserve(dictionary.size() * 24);
    for (auto it = dictionary.begin(); it != dictionary.end(); ++it) {
        if (!out.empty()) out.push_back('&');
        appendPercentEscaped(out, it.key());
        const nlohmann::json& value = it.value();
        if (value.is_null()) continue;
        out.push_back('=');
        appendQueryValue(out, value);
    }
    return out;
}

std::string PeloraNetwork::appendQuery(const std::string& url, const std::string& query) {
    size_t fragment = url.find('#');
    bool hasQuery = url.substr(0, fragment).find('?') != std::string::npos;
    std::string out;
    out.reserve(url.size() + 1 + query.size());
    out += url;
    out.push_back(hasQuery ? '&' : '?');
    out += query;
    return out;
}

// ---- PeloraNetwork: ad fetch ---------------------------------------------------------------

std::shared_ptr<PeloraRespData> PeloraNetwork::mapAdFetchAnswer(std::string_view body,
                                                                int64_t slotW, int64_t slotH) {
    auto envelope = plyy_modelWithJSON<PeloraRespData>(body);
    if (envelope && envelope->rData && envelope->rData->ads) {
        for (const auto& ad : *envelope->rData->ads) {
            if (!ad) continue;
            ad->reqSlotW = static_cast<int32_t>(slotW);
            ad->reqSlotH = static_cast<int32_t>(slotH);
        }
    }
    return envelope;
}

HttpRequest PeloraNetwork::adFetchRequest(const std::optional<std::string>& url,
                                          const PeloraUrlQuery* query, const PeloraReqBody* body,
                                          const PeloraRequestModifier& modifier) {
    // No guard on an absent URL here: the platform fails the task and the caller hears it.
    HttpRequest request;
    request.url = url.value_or("");
    request.cachePolicy = pelora::platform::CachePolicy::UseProtocolCachePolicy;
    request.timeoutInterval = static_cast<double>(kPeloraDefaultTolerateTimeout);
    request.method = "POST";
    request.setValue("application/json", "Content-Type");
    request.maxBodyBytes = PeloraConstConfig::limits().answerBytes;
    if (body) request.body = plyy_modelToJSONData(*body).value_or("");

    std::string encoded = encodeQueryRecord(query);
    if (!encoded.empty()) request.url = appendQuery(request.url, encoded);

    if (modifier) modifier(request);
    return request;
}

void PeloraNetwork::post(const std::optional<std::string>& url,
                         std::shared_ptr<PeloraUrlQuery> query, std::shared_ptr<PeloraReqBody> body,
                         PeloraRequestModifier modifier, AdFetchCompletion complete) {
    HttpRequest request = adFetchRequest(url, query.get(), body.get(), modifier);

    auto loop = pelora::platform::services().mainRunLoop;
    auto task = apiSession()->dataTaskWithRequest(
        std::move(request),
        [loop, body, complete = std::move(complete)](std::optional<std::string> data,
                                                     std::optional<HttpResponse> response,
                                                     std::optional<Error> error) mutable {
            postToMain(loop, [body = std::move(body), complete = std::move(complete),
                              data = std::move(data), response = std::move(response),
                              error = std::move(error)] {
                if (error) {
                    if (complete) complete(error->code, describe(*error), nullptr);
                    return;
                }
                if (!response || PeloraTool::dataIsEmpty(data)) {
                    if (complete) complete(-1, std::string("response error"), nullptr);
                    return;
                }
                int64_t slotW = 0;
                int64_t slotH = 0;
                if (body && body->slot) {
                    slotW = body->slot->width;
                    slotH = body->slot->height;
                }
                auto envelope = mapAdFetchAnswer(*data, slotW, slotH);
                if (!complete) return;
                std::shared_ptr<PeloraRespObject> payload = envelope ? envelope->rData : nullptr;
                int64_t code = payload ? 0 : -1;
                pelora::platform::log(pelora::platform::LogLevel::Debug,
                                      std::to_string(static_cast<int>(code)));
                complete(code, std::nullopt, std::move(payload));
            });
        });
    if (task) task->resume();
}

// ---- PeloraNetwork: reports and raw data tasks ----------------------------------------------

void PeloraNetwork::get(const std::optional<std::string>& url,
                        std::shared_ptr<PeloraUrlQuery> query, PeloraRequestModifier modifier,
                        ReportCompletion complete) {
    if (!url) return;
    HttpRequest request;
    request.url = *url;
    request.cachePolicy = pelora::platform::CachePolicy::UseProtocolCachePolicy;
    request.timeoutInterval = 60.0;
    request.method = "GET";
    std::string encoded = encodeQueryRecord(query.get());
    if (!encoded.empty()) request.url = appendQuery(request.url, encoded);
    if (modifier) modifier(request);
    dataTaskWithRequest(std::move(request), std::move(complete));
}

void PeloraNetwork::post(const std::optional<std::string>& url, std::optional<std::string> body,
                         PeloraRequestModifier modifier, ReportCompletion complete) {
    if (!url) return;
    HttpRequest request;
    request.url = *url;
    request.cachePolicy = pelora::platform::CachePolicy::UseProtocolCachePolicy;
    request.timeoutInterval = 60.0;
    request.method = "POST";
    request.body = body.value_or("");
    if (modifier) modifier(request);
    dataTaskWithRequest(std::move(request), std::move(complete));
}

std::shared_ptr<pelora::platform::HttpTask> PeloraNetwork::dataTaskWithRequest(
    HttpRequest request, ReportCompletion complete, BodyPreparation prepare) {
    if (!request.maxBodyBytes) request.maxBodyBytes = PeloraConstConfig::limits().answerBytes;
    auto loop = pelora::platform::services().mainRunLoop;
    auto task = apiSession()->dataTaskWithRequest(
        std::move(request),
        [loop, complete = std::move(complete), prepare = std::move(prepare)](
            std::optional<std::string> data, std::optional<HttpResponse> response,
            std::optional<Error> error) mutable {
            if (prepare && !error && response && response->statusCode >= 200 &&
                response->statusCode <= 299 && !PeloraTool::dataIsEmpty(data))
                prepare(*data);
            postToMain(loop, [complete = std::move(complete), data = std::move(data),
                              response = std::move(response), error = std::move(error)] {
                onUploadResp(data, response, error, complete);
            });
        });
    if (task) task->resume();
    return task;
}

void PeloraNetwork::onUploadResp(std::optional<std::string> data,
                                 std::optional<HttpResponse> httpResponse,
                                 std::optional<Error> error, const ReportCompletion& complete) {
    if (!complete) return;
    if (error) {
        complete(error->code, std::string("sdk: upload error"), std::nullopt);
        return;
    }
    int64_t status = httpResponse ? httpResponse->statusCode : 0;
    int64_t code = (status < 200 || status > 299) ? status : 0;
    complete(code, std::nullopt, std::move(data));
}

// ---- PeloraNetwork: file download ------------------------------------------------------------

std::shared_ptr<pelora::platform::HttpTask> PeloraNetwork::downloadTaskWithUrl(
    const std::string& url, PeloraRequestModifier modifier, std::optional<std::string> destination,
    DownloadCompletion handler) {
    HttpRequest request;
    request.url = url;
    if (modifier) modifier(request);

    auto loop = pelora::platform::services().mainRunLoop;
    auto files = pelora::platform::services().files;
    std::string fileName = lastPathComponent(url);
    auto task = fileSession()->downloadTaskWithRequest(
        std::move(request),
        [loop, files, fileName, destination = std::move(destination), handler = std::move(handler)](
            std::optional<std::string> location, std::optional<HttpResponse> response,
            std::optional<Error> error) mutable {
            // Runs on the session's thread: the temporary file is gone once this returns, so
            // it is moved into place here and only the result travels to the main loop.
            std::optional<std::string> result = location;
            if (location && !error && files && isSafeFileName(fileName)) {
                std::string dir = destination ? *destination : files->cachesDirectory() + "/Pelora";
                if (!files->fileExists(dir)) files->createDirectory(dir, true);
                std::string target = dir + "/" + fileName;
                files->removeItem(target);
                if (files->moveItem(*location, target)) result = target;
            }
            postToMain(loop, [handler = std::move(handler), result = std::move(result),
                              response = std::move(response), error = std::move(error)] {
                if (handler) handler(result, response, error);
            });
        });
    if (task) task->resume();
    return task;
}

// ---- percent escaping -------------------------------------------------------------------------

std::string pl_AFPercentEscapedStringFromString(const std::string& text) {
    std::string out;
    appendPercentEscaped(out, text);
    return out;
}
