#include "native/PeloraImageDownloader.h"

#include <mutex>
#include <string>
#include <utility>

#include "core/PeloraNetwork.h"
#include "pelora/PeloraSDKManager.h"
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
    auto decoder = pelora::platform::services().imageDecoder;
    auto image = std::make_shared<std::shared_ptr<Image>>();
    if (!request.maxBodyBytes) request.maxBodyBytes = PeloraConstConfig::limits().imageBytes;
    return PeloraNetwork::dataTaskWithRequest(
        std::move(request),
        [image, success = std::move(success), failure = std::move(failure)](
            int64_t code, std::optional<std::string> message, std::optional<std::string> data) {
            if (code == 0 && !PeloraTool::dataIsEmpty(data)) {
                if (success) success(std::move(*image));
                return;
            }
            if (failure) failure(code, std::move(message));
        },
        // On the session's thread, completely: the main run loop receives a finished image
        // or none. Bytes whose header is an image's but whose data is not give no image.
        [image, decoder](const std::string& body) {
            if (!decoder) return;
            auto decoded = decoder->decode(body, 1.0);
            if (decoded && decoded->rgba().size() < static_cast<size_t>(decoded->pixelWidth) *
                                                        static_cast<size_t>(decoded->pixelHeight) *
                                                        4)
                decoded.reset();
            *image = std::move(decoded);
        });
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
