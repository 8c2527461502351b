#include "native/PeloraImageDownloader.h"

#include <mutex>
#include <string>
#include <utility>

#include "core/PeloraNetwork.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "support/PeloraThreadCheck.h"
#include "support/PeloraTool.h"

using pelora::platform::HttpRequest;
using pelora::platform::HttpTask;
using pelora::platform::Image;

namespace {

// The attachment key of the per-view task; its address is the key.
const char kPlDowningTaskKey = 0;

std::shared_ptr<PeloraImageDownloader>& sharedSlot() {
    static std::shared_ptr<PeloraImageDownloader> instance;
    return instance;
}

std::mutex& classLock() {
    static std::mutex m;
    return m;
}

}  // namespace

std::shared_ptr<PeloraImageDownloader> PeloraImageDownloader::_init() {
    return std::make_shared<PeloraImageDownloader>(PrivateTag{});
}

std::shared_ptr<PeloraImageDownloader> PeloraImageDownloader::init() {
    return _init();
}

std::shared_ptr<PeloraImageDownloader> PeloraImageDownloader::shareInstance() {
    static std::once_flag once;
    std::call_once(once, [] {
        std::lock_guard lock(classLock());
        if (!sharedSlot()) sharedSlot() = _init();
    });
    return sharedSlot();
}

std::shared_ptr<HttpTask> PeloraImageDownloader::downloadImageRequest(HttpRequest request,
                                                                      Success success,
                                                                      Failure failure) {
    const auto& services = pelora::platform::services();
    auto loop = services.mainRunLoop;
    auto decoder = services.imageDecoder;
    auto session = PeloraNetwork::apiSession();
    auto task = session->dataTaskWithRequest(
        std::move(request),
        [loop, decoder, success = std::move(success), failure = std::move(failure)](
            std::optional<std::string> data, std::optional<pelora::platform::HttpResponse> response,
            std::optional<pelora::platform::Error> error) mutable {
            // On the session's thread: the bytes are decoded here, completely, so the main run
            // loop receives a finished image or none. Bytes whose header is an image's but
            // whose data is not give no image.
            std::shared_ptr<Image> image;
            const bool ok = !error && response && response->statusCode >= 200 &&
                            response->statusCode <= 299 && !PeloraTool::dataIsEmpty(data);
            if (ok && decoder) {
                image = decoder->decode(*data, 1.0);
                const size_t pixels = image ? static_cast<size_t>(image->pixelWidth) *
                                                  static_cast<size_t>(image->pixelHeight) * 4
                                            : 0;
                if (image && image->rgba().size() < pixels) image.reset();
            }
            if (!loop) return;
            loop->post([success = std::move(success), failure = std::move(failure),
                        data = std::move(data), response = std::move(response),
                        error = std::move(error), image = std::move(image)]() mutable {
                PeloraNetwork::onUploadResp(std::move(data), std::move(response), std::move(error),
                                            [&](int64_t code, std::optional<std::string> message,
                                                std::optional<std::string> body) {
                                                if (code == 0 && !PeloraTool::dataIsEmpty(body)) {
                                                    if (success) success(std::move(image));
                                                    return;
                                                }
                                                if (failure) failure(code, std::move(message));
                                            });
            });
        });
    if (task) task->resume();
    return task;
}

std::shared_ptr<HttpTask> pl_downingTask(const pelora::ui::ImageView& view) {
    return std::static_pointer_cast<HttpTask>(view.associatedObject(&kPlDowningTaskKey));
}

void setPl_downingTask(pelora::ui::ImageView& view, std::shared_ptr<HttpTask> task) {
    view.setAssociatedObject(&kPlDowningTaskKey, std::move(task));
}

void pl_setImageUrl(pelora::ui::ImageView& view, const std::optional<std::string>& url) {
    PELORA_DCHECK_ON_MAIN_THREAD("pl_setImageUrl");
    HttpRequest request;
    request.url = url.value_or("");
    request.addValue("image/*", "Accept");

    if (auto previous = pl_downingTask(view)) previous->cancel();

    std::weak_ptr<pelora::ui::View> weakView = view.weak_from_this();
    auto task = PeloraImageDownloader::shareInstance()->downloadImageRequest(
        std::move(request),
        [weakView](std::shared_ptr<Image> image) {
            auto strong = std::static_pointer_cast<pelora::ui::ImageView>(weakView.lock());
            if (strong) strong->setImage(std::move(image));
        },
        [](int64_t code, std::optional<std::string>) {
            pelora::platform::log(pelora::platform::LogLevel::Warning,
                                  "sdk: image error " + std::to_string(static_cast<int>(code)));
        });
    setPl_downingTask(view, std::move(task));
}
