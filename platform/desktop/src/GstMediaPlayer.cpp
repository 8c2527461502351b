#include "pelora/desktop/GstMediaPlayer.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#include <limits.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "pelora/platform/Log.h"

namespace pelora::desktop {

namespace {

using platform::Error;
using platform::MediaTime;
using platform::PlayerItemStatus;
using platform::TimeControlStatus;
using platform::VideoFrame;

constexpr int32_t kNanos = 1000000000;

// How long a loading pipeline may go without a word on its bus before the load is given up.
// decodebin drops an error that a demuxer raises while it is still being started (a corrupt
// file can do this), leaving the pipeline waiting for its first frame for ever; a local file
// that says nothing for this long is stuck, and a remote one has outlived its source's own
// time-out (15 s).
constexpr double kLocalStallSeconds = 5;
constexpr double kRemoteStallSeconds = 20;

int64_t steadyNanos() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

bool initGStreamer() {
    static std::once_flag once;
    static bool ok = false;
    std::call_once(once, [] {
        GError* error = nullptr;
        ok = gst_init_check(nullptr, nullptr, &error);
        if (!ok) {
            platform::log(platform::LogLevel::Error,
                          std::string("media: GStreamer is not usable: ") +
                              (error ? error->message : "unknown reason"));
        }
        if (error) g_error_free(error);
    });
    return ok;
}

// The audio output: the first of the usual sinks that opens on this machine, otherwise a
// sink that only keeps time, so a machine without sound plays videos all the same. Decided
// once: probing a missing sound card is slow and noisy.
GstElement* makeAudioSink() {
    static std::once_flag once;
    static std::string output;
    std::call_once(once, [] {
        for (const char* name : {"pulsesink", "alsasink"}) {
            GstElement* probe = gst_element_factory_make(name, nullptr);
            if (!probe) continue;
            const bool opens =
                gst_element_set_state(probe, GST_STATE_READY) != GST_STATE_CHANGE_FAILURE;
            gst_element_set_state(probe, GST_STATE_NULL);
            gst_object_unref(probe);
            if (opens) {
                output = name;
                return;
            }
        }
        platform::log(platform::LogLevel::Info, "media: no audio output; audio is discarded");
    });
    if (!output.empty()) {
        if (GstElement* sink = gst_element_factory_make(output.c_str(), nullptr)) return sink;
    }
    GstElement* sink = gst_element_factory_make("fakesink", nullptr);
    if (sink) g_object_set(sink, "sync", TRUE, nullptr);
    return sink;
}

std::string lowerScheme(const std::string& url) {
    auto colon = url.find(':');
    if (colon == std::string::npos) return {};
    std::string scheme = url.substr(0, colon);
    for (auto& c : scheme) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return scheme;
}

std::string canonical(const std::string& path) {
    char buffer[PATH_MAX];
    if (::realpath(path.c_str(), buffer)) return buffer;
    // A file that does not exist (yet): resolve its folder and keep the name.
    auto slash = path.rfind('/');
    if (slash == std::string::npos) return {};
    std::string name = path.substr(slash + 1);
    if (name.empty() || name == "." || name == "..") return {};
    std::string dir = slash == 0 ? "/" : path.substr(0, slash);
    if (!::realpath(dir.c_str(), buffer)) return {};
    std::string out = buffer;
    if (out != "/") out += "/";
    return out + name;
}

// What GStreamer will open for `url`, or the reason it will not be opened.
struct Admission {
    std::string uri;
    bool remote = false;
    std::optional<Error> refusal;
};

Admission admit(const std::string& url, const std::string& cachesDirectory) {
    Admission out;
    const std::string scheme = lowerScheme(url);
    if (scheme == "http" || scheme == "https") {
        out.uri = url;
        out.remote = true;
        return out;
    }
    auto refuse = [&](const std::string& why) {
        out.refusal = Error{platform::kURLErrorDomain, platform::URLError::kUnsupportedURL,
                            "media: refused to open " + url.substr(0, 200) + ": " + why};
        return out;
    };
    if (scheme != "file") return refuse("only http, https and file URLs are played");
    gchar* decoded = g_filename_from_uri(url.c_str(), nullptr, nullptr);
    if (!decoded) return refuse("not a local file URL");
    std::string path = canonical(decoded);
    g_free(decoded);
    std::string root = canonical(cachesDirectory);
    if (path.empty() || root.empty() || path.rfind(root + "/", 0) != 0)
        return refuse("the file is not inside the SDK's caches directory");
    gchar* uri = gst_filename_to_uri(path.c_str(), nullptr);
    if (!uri) return refuse("not a local file URL");
    out.uri = uri;
    g_free(uri);
    return out;
}

bool mentions(const std::string& text, const char* word) {
    std::string lower = text;
    for (auto& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower.find(word) != std::string::npos;
}

// GStreamer's error to the platform's code (table in docs/PLATFORM.md).
Error mapError(const GError* error, const std::string& debug, bool remote) {
    const std::string message = error && error->message ? error->message : "playback failed";
    const std::string all = message + " " + debug;
    auto media = [&](int64_t code) { return Error{platform::kMediaErrorDomain, code, message}; };
    auto url = [&](int64_t code) { return Error{platform::kURLErrorDomain, code, message}; };
    if (!error) return media(platform::MediaError::kUnknown);
    if (error->domain == GST_RESOURCE_ERROR) {
        if (!remote) return media(platform::MediaError::kCannotOpen);
        if (mentions(all, "timed out") || mentions(all, "timeout"))
            return url(platform::URLError::kTimedOut);
        if (mentions(all, "certificate") || mentions(all, "tls") || mentions(all, "ssl"))
            return url(platform::URLError::kServerCertificateUntrusted);
        if (error->code == GST_RESOURCE_ERROR_NOT_FOUND || mentions(all, "not found"))
            return url(platform::URLError::kResourceUnavailable);
        return url(platform::URLError::kCannotConnectToHost);
    }
    if (error->domain == GST_STREAM_ERROR) {
        switch (error->code) {
            case GST_STREAM_ERROR_TYPE_NOT_FOUND:
            case GST_STREAM_ERROR_WRONG_TYPE:
            case GST_STREAM_ERROR_FORMAT:
                return media(platform::MediaError::kFormatNotRecognized);
            case GST_STREAM_ERROR_CODEC_NOT_FOUND:
                return media(platform::MediaError::kDecoderNotFound);
            case GST_STREAM_ERROR_DECODE:
            case GST_STREAM_ERROR_DEMUX:
                return media(platform::MediaError::kDecodeFailed);
            default:
                return media(platform::MediaError::kUnknown);
        }
    }
    if (error->domain == GST_CORE_ERROR && error->code == GST_CORE_ERROR_MISSING_PLUGIN)
        return media(platform::MediaError::kDecoderNotFound);
    return media(platform::MediaError::kUnknown);
}

// ---- item ------------------------------------------------------------------------------------

class GstItem final : public platform::PlayerItem, public std::enable_shared_from_this<GstItem> {
  public:
    GstItem(std::string url, Admission admission)
        : url_(std::move(url)), admission_(std::move(admission)) {}

    const std::string& url() const override { return url_; }
    PlayerItemStatus status() const override { return status_; }
    std::optional<Error> error() const override { return error_; }
    MediaTime duration() const override { return duration_; }
    MediaTime assetDuration() const override { return duration_; }

    std::shared_ptr<platform::MediaObservation> observeStatus(std::function<void()> changed,
                                                              bool initial) override {
        return statusObservers_.add(std::move(changed), initial);
    }

    const Admission& admission() const { return admission_; }
    void setDuration(MediaTime duration) { duration_ = duration; }
    void setStatus(PlayerItemStatus status, std::optional<Error> error) {
        const bool changed = status != status_;
        status_ = status;
        error_ = std::move(error);
        if (!changed) return;
        auto keep = shared_from_this();
        statusObservers_.notify();
    }

  private:
    std::string url_;
    Admission admission_;
    PlayerItemStatus status_ = PlayerItemStatus::Unknown;
    std::optional<Error> error_;
    MediaTime duration_;
    platform::StatusObservers statusObservers_;
};

// ---- player ----------------------------------------------------------------------------------

class GstPlayer;

// What GStreamer's threads share with the main run loop. Tasks they post carry the pipeline
// generation they belong to, so reports of a pipeline that was replaced are dropped.
struct Shared {
    std::weak_ptr<GstPlayer> owner;
    std::weak_ptr<platform::RunLoop> loop;
    std::atomic<uint64_t> generation{0};
    std::mutex mutex;
    std::shared_ptr<VideoFrame> pendingFrame;
    bool framePosted = false;
    uint64_t sequence = 0;
    // The audio branch's volume, once the stream turned out to have audio (under `mutex`).
    GstElement* volume = nullptr;
    bool muted = false;
    // When the bus last carried a message (steady clock, nanoseconds).
    std::atomic<int64_t> lastActivity{0};
};

struct Context {
    std::shared_ptr<Shared> shared;
    uint64_t generation;
};

// A context goes to GStreamer, which hands it to its own threads and frees it once the last of
// them is done with it, ordered by GLib's locks and atomic reference counts; on Linux those are
// futexes and uninstrumented atomics that ThreadSanitizer cannot see, so it is told what they
// order: what was written before a context was handed over is visible to every callback that
// receives it, and every callback is done with it before it is freed. Nothing in other builds.
#if defined(__SANITIZE_THREAD__)
#define PELORA_TSAN_ANNOTATE 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define PELORA_TSAN_ANNOTATE 1
#endif
#endif
#ifdef PELORA_TSAN_ANNOTATE
extern "C" void __tsan_acquire(void* address);
extern "C" void __tsan_release(void* address);
void tsanAcquire(void* address) {
    __tsan_acquire(address);
}
void tsanRelease(void* address) {
    __tsan_release(address);
}
#else
void tsanAcquire(void*) {}
void tsanRelease(void*) {}
#endif

Context* handOver(const std::shared_ptr<Shared>& shared, uint64_t generation) {
    auto* context = new Context{shared, generation};
    tsanRelease(context);
    return context;
}

// The context of one callback, for the length of the callback.
class Received {
  public:
    explicit Received(gpointer data) : data_(data) { tsanAcquire(data_); }
    ~Received() { tsanRelease(data_); }
    Received(const Received&) = delete;
    Received& operator=(const Received&) = delete;
    Context& operator*() const { return *static_cast<Context*>(data_); }

  private:
    gpointer data_;
};

class GstPlayer final : public platform::Player, public std::enable_shared_from_this<GstPlayer> {
  public:
    explicit GstPlayer(std::shared_ptr<platform::RunLoop> loop) : loop_(std::move(loop)) {
        shared_->loop = loop_;
    }
    ~GstPlayer() override {
        stopTicks();
        teardown();
    }
    void bind() { shared_->owner = weak_from_this(); }

    std::shared_ptr<platform::PlayerItem> currentItem() const override { return item_; }

    void replaceCurrentItem(std::shared_ptr<platform::PlayerItem> item) override {
        teardown();
        item_ = std::dynamic_pointer_cast<GstItem>(item);
        ended_ = false;
        load();
        updateTicks();
    }

    void play() override { setRate(1.0); }
    void pause() override { setRate(0); }
    double rate() const override { return rate_; }
    void setRate(double rate) override {
        rate_ = rate > 0 ? 1.0 : 0.0;
        if (rate_ > 0 && item_ && item_->status() == PlayerItemStatus::Failed) {
            // Asked to play a failed item: load it again; it may work this time.
            teardown();
            ended_ = false;
            load();
        }
        applyState();
        updateTicks();
    }

    TimeControlStatus timeControlStatus() const override {
        if (rate_ == 0) return TimeControlStatus::Paused;
        if (pipeline_ && current_ == GST_STATE_PLAYING && !buffering_)
            return TimeControlStatus::Playing;
        return TimeControlStatus::WaitingToPlayAtSpecifiedRate;
    }

    bool muted() const override { return muted_; }
    void setMuted(bool muted) override {
        muted_ = muted;
        std::lock_guard lock(shared_->mutex);
        shared_->muted = muted;
        if (shared_->volume) g_object_set(shared_->volume, "mute", muted ? TRUE : FALSE, nullptr);
    }

    MediaTime currentTime() const override {
        if (ended_ && item_) return item_->duration();
        gint64 position = 0;
        if (pipeline_ && gst_element_query_position(pipeline_, GST_FORMAT_TIME, &position) &&
            position >= 0)
            return MediaTime{position, kNanos};
        return MediaTime{0, kNanos};
    }

    std::shared_ptr<platform::MediaObservation> addPeriodicTimeObserver(
        MediaTime interval, std::function<void(MediaTime)> block) override {
        const uint64_t id = nextObserver_++;
        double seconds = interval.seconds();
        observers_[id] = Observer{seconds < 0.01 ? 0.01 : seconds, std::move(block), nullptr};
        updateTicks();
        std::weak_ptr<GstPlayer> weak = weak_from_this();
        return std::make_shared<platform::CallbackObservation>([weak, id] {
            auto player = weak.lock();
            if (!player) return;
            auto it = player->observers_.find(id);
            if (it == player->observers_.end()) return;
            if (it->second.timer) it->second.timer->invalidate();
            player->observers_.erase(it);
        });
    }

    void setVideoOutput(std::function<void(std::shared_ptr<const VideoFrame>)> output) override {
        output_ = std::move(output);
    }

    // ---- reports from GStreamer, on the main run loop ----------------------------------------

    void onAsyncDone() {
        if (!item_ || prerolled_) return;
        prerolled_ = true;
        stopStallWatch();
        gint64 duration = -1;
        if (gst_element_query_duration(pipeline_, GST_FORMAT_TIME, &duration) && duration > 0)
            item_->setDuration(MediaTime{duration, kNanos});
        item_->setStatus(PlayerItemStatus::ReadyToPlay, std::nullopt);
        applyState();
    }
    void onStateChanged(GstState state) {
        current_ = state;
        updateTicks();
    }
    void onDurationChanged() {
        gint64 duration = -1;
        if (item_ && pipeline_ &&
            gst_element_query_duration(pipeline_, GST_FORMAT_TIME, &duration) && duration > 0)
            item_->setDuration(MediaTime{duration, kNanos});
    }
    void onBuffering(int percent) { buffering_ = percent < 100; }
    void onEndOfStream() {
        auto keep = shared_from_this();
        if (item_ && !item_->duration().isKnown()) item_->setDuration(currentTime());
        ended_ = true;
        rate_ = 0;
        applyState();
        stopTicks();
        const MediaTime end = currentTime();
        auto observers = observers_;
        for (auto& [id, observer] : observers)
            if (observer.block && observers_.count(id)) observer.block(end);
    }
    void onError(Error error) {
        auto keep = shared_from_this();
        platform::log(platform::LogLevel::Warning, "media: " + error.description + " (" +
                                                       error.domain + " " +
                                                       std::to_string(error.code) + ")");
        rate_ = 0;
        teardown();
        stopTicks();
        if (item_) item_->setStatus(PlayerItemStatus::Failed, std::move(error));
    }
    void onFrame() {
        std::shared_ptr<VideoFrame> frame;
        {
            std::lock_guard lock(shared_->mutex);
            frame = std::move(shared_->pendingFrame);
            shared_->framePosted = false;
        }
        if (frame && output_) output_(frame);
    }

  private:
    struct Observer {
        double interval;
        std::function<void(MediaTime)> block;
        std::shared_ptr<platform::Timer> timer;
    };

    void load();
    void teardown();

    // Until the first frame, a pipeline that goes quiet for `limit` seconds fails the item.
    void watchForStall(double limit, double wait) {
        std::weak_ptr<GstPlayer> weak = weak_from_this();
        const uint64_t generation = shared_->generation.load();
        stallTimer_ = loop_->scheduleTimer(wait, false, [weak, generation, limit](auto&) {
            auto player = weak.lock();
            if (!player || player->shared_->generation.load() != generation || player->prerolled_ ||
                !player->pipeline_)
                return;
            const double quiet =
                static_cast<double>(steadyNanos() - player->shared_->lastActivity.load()) / 1e9;
            if (quiet < limit) {
                player->watchForStall(limit, limit - quiet);
                return;
            }
            player->onError(Error{platform::kMediaErrorDomain, platform::MediaError::kDecodeFailed,
                                  "The video did not start: nothing happened for " +
                                      std::to_string(static_cast<int>(limit)) + " s"});
        });
    }
    void stopStallWatch() {
        if (stallTimer_) stallTimer_->invalidate();
        stallTimer_.reset();
    }

    void applyState() {
        if (!pipeline_ || !prerolled_) return;
        GstState target = rate_ > 0 && !ended_ ? GST_STATE_PLAYING : GST_STATE_PAUSED;
        gst_element_set_state(pipeline_, target);
    }

    // A timer per observer runs while the player is not paused, and none otherwise, so an
    // idle player costs the host no wake-ups.
    void updateTicks() {
        if (timeControlStatus() == TimeControlStatus::Paused) {
            stopTicks();
            return;
        }
        std::weak_ptr<GstPlayer> weak = weak_from_this();
        for (auto& [id, observer] : observers_) {
            if (observer.timer) continue;
            const uint64_t key = id;
            observer.timer = loop_->scheduleTimer(observer.interval, true, [weak, key](auto&) {
                auto player = weak.lock();
                if (!player) return;
                auto it = player->observers_.find(key);
                if (it == player->observers_.end() || !it->second.block) return;
                auto block = it->second.block;
                block(player->currentTime());
            });
        }
    }
    void stopTicks() {
        for (auto& [id, observer] : observers_) {
            if (observer.timer) observer.timer->invalidate();
            observer.timer.reset();
        }
    }

    std::shared_ptr<platform::RunLoop> loop_;
    std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
    std::shared_ptr<GstItem> item_;
    GstElement* pipeline_ = nullptr;
    GstState current_ = GST_STATE_NULL;
    std::shared_ptr<platform::Timer> stallTimer_;
    bool prerolled_ = false;
    bool ended_ = false;
    bool buffering_ = false;
    double rate_ = 0;
    bool muted_ = false;
    std::map<uint64_t, Observer> observers_;
    uint64_t nextObserver_ = 1;
    std::function<void(std::shared_ptr<const VideoFrame>)> output_;
};

// Posts `work` for the player of this pipeline generation to the main run loop.
template <class F>
void postToPlayer(const Context& context, F work) {
    auto loop = context.shared->loop.lock();
    if (!loop) return;
    std::weak_ptr<Shared> weak = context.shared;
    const uint64_t generation = context.generation;
    loop->post([weak, generation, work = std::move(work)]() mutable {
        auto shared = weak.lock();
        if (!shared || shared->generation.load() != generation) return;
        if (auto player = shared->owner.lock()) work(*player);
    });
}

GstBusSyncReply onBusMessage(GstBus*, GstMessage* message, gpointer data) {
    const Received received(data);
    const auto& context = *received;
    context.shared->lastActivity.store(steadyNanos());
    switch (GST_MESSAGE_TYPE(message)) {
        case GST_MESSAGE_ERROR: {
            GError* error = nullptr;
            gchar* debug = nullptr;
            gst_message_parse_error(message, &error, &debug);
            std::string debugText = debug ? debug : "";
            // A report that never reaches the player (released, or its pipeline replaced) still
            // frees its copy: the task owns it, run or dropped.
            std::shared_ptr<GError> copy(error ? g_error_copy(error) : nullptr, [](GError* e) {
                if (e) g_error_free(e);
            });
            postToPlayer(context, [copy, debugText](GstPlayer& player) {
                auto item = std::dynamic_pointer_cast<GstItem>(player.currentItem());
                player.onError(mapError(copy.get(), debugText, item && item->admission().remote));
            });
            if (error) g_error_free(error);
            g_free(debug);
            break;
        }
        case GST_MESSAGE_EOS:
            postToPlayer(context, [](GstPlayer& player) { player.onEndOfStream(); });
            break;
        case GST_MESSAGE_ASYNC_DONE:
            postToPlayer(context, [](GstPlayer& player) { player.onAsyncDone(); });
            break;
        case GST_MESSAGE_DURATION_CHANGED:
            postToPlayer(context, [](GstPlayer& player) { player.onDurationChanged(); });
            break;
        case GST_MESSAGE_BUFFERING: {
            gint percent = 100;
            gst_message_parse_buffering(message, &percent);
            postToPlayer(context, [percent](GstPlayer& player) { player.onBuffering(percent); });
            break;
        }
        case GST_MESSAGE_STATE_CHANGED: {
            // Only the pipeline's own state counts; its elements report theirs too.
            if (GST_MESSAGE_SRC(message) && GST_IS_PIPELINE(GST_MESSAGE_SRC(message))) {
                GstState previous, current, pending;
                gst_message_parse_state_changed(message, &previous, &current, &pending);
                postToPlayer(context,
                             [current](GstPlayer& player) { player.onStateChanged(current); });
            }
            break;
        }
        default:
            break;
    }
    // A synchronous handler that drops a message owns it: everything needed was copied above.
    gst_message_unref(message);
    return GST_BUS_DROP;
}

// Copies one decoded frame (on a streaming thread) and hands it to the main run loop; a frame
// the loop has not taken yet is replaced, never queued behind.
GstFlowReturn takeFrame(GstAppSink* sink, bool preroll, Context& context) {
    GstSample* sample = preroll ? gst_app_sink_pull_preroll(sink) : gst_app_sink_pull_sample(sink);
    if (!sample) return GST_FLOW_OK;
    GstVideoInfo info;
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    GstCaps* caps = gst_sample_get_caps(sample);
    GstMapInfo map;
    if (buffer && caps && gst_video_info_from_caps(&info, caps) &&
        gst_buffer_map(buffer, &map, GST_MAP_READ)) {
        auto frame = std::make_shared<VideoFrame>();
        frame->width = GST_VIDEO_INFO_WIDTH(&info);
        frame->height = GST_VIDEO_INFO_HEIGHT(&info);
        const int srcStride = GST_VIDEO_INFO_PLANE_STRIDE(&info, 0);
        frame->stride = frame->width * 4;
        const size_t rows = static_cast<size_t>(frame->height);
        if (static_cast<size_t>(srcStride) * (rows ? rows - 1 : 0) +
                static_cast<size_t>(frame->stride) <=
            map.size) {
            frame->rgba.resize(static_cast<size_t>(frame->stride) * rows);
            for (size_t y = 0; y < rows; ++y)
                std::memcpy(frame->rgba.data() + y * static_cast<size_t>(frame->stride),
                            map.data + y * static_cast<size_t>(srcStride),
                            static_cast<size_t>(frame->stride));
            if (GST_BUFFER_PTS_IS_VALID(buffer))
                frame->presentationTime =
                    MediaTime{static_cast<int64_t>(GST_BUFFER_PTS(buffer)), kNanos};
            bool post = false;
            {
                std::lock_guard lock(context.shared->mutex);
                frame->sequence = ++context.shared->sequence;
                context.shared->pendingFrame = std::move(frame);
                post = !context.shared->framePosted;
                context.shared->framePosted = true;
            }
            if (post) postToPlayer(context, [](GstPlayer& player) { player.onFrame(); });
        }
        gst_buffer_unmap(buffer, &map);
    }
    gst_sample_unref(sample);
    return GST_FLOW_OK;
}

GstFlowReturn onNewSample(GstAppSink* sink, gpointer data) {
    const Received received(data);
    return takeFrame(sink, false, *received);
}
GstFlowReturn onNewPreroll(GstAppSink* sink, gpointer data) {
    const Received received(data);
    return takeFrame(sink, true, *received);
}

void deleteContext(gpointer data) {
    tsanAcquire(data);
    delete static_cast<Context*>(data);
}

void onSourceSetup(GstElement*, GstElement* source, gpointer) {
    // Remote sources verify certificates (the default, said out loud) and give up on a
    // silent server instead of waiting forever.
    GObjectClass* klass = G_OBJECT_GET_CLASS(source);
    if (g_object_class_find_property(klass, "ssl-strict"))
        g_object_set(source, "ssl-strict", TRUE, nullptr);
    if (g_object_class_find_property(klass, "timeout"))
        g_object_set(source, "timeout", 15u, nullptr);
}

bool hasElement(GstElement* bin, const char* name) {
    GstElement* found = gst_bin_get_by_name(GST_BIN(bin), name);
    if (found) gst_object_unref(found);
    return found != nullptr;
}

// Adds `chain` to the pipeline, starts them and links `pad` to the first.
bool addBranch(GstElement* pipeline, GstPad* pad, const std::vector<GstElement*>& chain) {
    for (GstElement* e : chain) {
        if (!e) {
            for (GstElement* other : chain)
                if (other) gst_object_unref(other);
            return false;
        }
    }
    for (GstElement* e : chain) gst_bin_add(GST_BIN(pipeline), e);
    for (size_t i = 0; i + 1 < chain.size(); ++i) gst_element_link(chain[i], chain[i + 1]);
    for (GstElement* e : chain) gst_element_sync_state_with_parent(e);
    GstPad* sinkPad = gst_element_get_static_pad(chain.front(), "sink");
    const bool linked = gst_pad_link(pad, sinkPad) == GST_PAD_LINK_OK;
    gst_object_unref(sinkPad);
    return linked;
}

// A decoded stream appeared (on a streaming thread): video goes to RGBA frames for the
// drawing layer, audio to the output through a volume that mutes; anything else is left.
void onPadAdded(GstElement* source, GstPad* pad, gpointer data) {
    const Received received(data);
    auto& context = *received;
    GstCaps* caps = gst_pad_get_current_caps(pad);
    if (!caps) caps = gst_pad_query_caps(pad, nullptr);
    const gchar* media = caps && gst_caps_get_size(caps) > 0
                             ? gst_structure_get_name(gst_caps_get_structure(caps, 0))
                             : "";
    const std::string kind = media ? media : "";
    if (caps) gst_caps_unref(caps);
    GstElement* pipeline = GST_ELEMENT(gst_element_get_parent(source));
    if (!pipeline) return;
    if (kind.rfind("video/", 0) == 0 && !hasElement(pipeline, "frames")) {
        GstElement* sink = gst_element_factory_make("appsink", "frames");
        if (sink) {
            GstCaps* rgba =
                gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "RGBA", nullptr);
            g_object_set(sink, "caps", rgba, "sync", TRUE, "max-buffers", 2u, "drop", TRUE,
                         "enable-last-sample", FALSE, nullptr);
            gst_caps_unref(rgba);
            GstAppSinkCallbacks callbacks{};
            callbacks.new_sample = onNewSample;
            callbacks.new_preroll = onNewPreroll;
            gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks,
                                       handOver(context.shared, context.generation), deleteContext);
        }
        addBranch(pipeline, pad, {gst_element_factory_make("videoconvert", nullptr), sink});
    } else if (kind.rfind("audio/", 0) == 0 && !hasElement(pipeline, "volume")) {
        GstElement* volume = gst_element_factory_make("volume", "volume");
        if (volume) {
            std::lock_guard lock(context.shared->mutex);
            g_object_set(volume, "mute", context.shared->muted ? TRUE : FALSE, nullptr);
            if (context.shared->generation.load() == context.generation && !context.shared->volume)
                context.shared->volume = GST_ELEMENT(gst_object_ref(volume));
        }
        addBranch(pipeline, pad,
                  {gst_element_factory_make("audioconvert", nullptr),
                   gst_element_factory_make("audioresample", nullptr), volume, makeAudioSink()});
    }
    gst_object_unref(pipeline);
}

void GstPlayer::load() {
    prerolled_ = false;
    buffering_ = false;
    current_ = GST_STATE_NULL;
    if (!item_) return;
    item_->setStatus(PlayerItemStatus::Unknown, std::nullopt);
    const uint64_t generation = ++shared_->generation;
    std::weak_ptr<GstItem> weakItem = item_;
    auto failLater = [this, weakItem, generation](Error error) {
        // Reported on the next turn, like any other load outcome.
        std::weak_ptr<Shared> weakShared = shared_;
        loop_->post([weakShared, weakItem, generation, error] {
            auto shared = weakShared.lock();
            auto item = weakItem.lock();
            if (!shared || !item || shared->generation.load() != generation) return;
            item->setStatus(PlayerItemStatus::Failed, error);
        });
    };
    if (item_->admission().refusal) {
        platform::log(platform::LogLevel::Warning, item_->admission().refusal->description);
        failLater(*item_->admission().refusal);
        return;
    }
    if (!initGStreamer()) {
        failLater(Error{platform::kMediaErrorDomain, platform::MediaError::kDecoderNotFound,
                        "GStreamer is not available"});
        return;
    }
    // uridecodebin with one branch per stream, added as the streams appear: what a player
    // needs of playbin, without the subtitle, visualisation and conversion machinery that
    // makes playbin's first frame come markedly later.
    GstElement* pipeline = gst_pipeline_new(nullptr);
    GstElement* source = gst_element_factory_make("uridecodebin", nullptr);
    if (!pipeline || !source) {
        if (pipeline) gst_object_unref(pipeline);
        if (source) gst_object_unref(source);
        failLater(Error{platform::kMediaErrorDomain, platform::MediaError::kDecoderNotFound,
                        "GStreamer's uridecodebin is missing"});
        return;
    }
    g_object_set(source, "uri", item_->admission().uri.c_str(), nullptr);
    gst_bin_add(GST_BIN(pipeline), source);
    {
        std::lock_guard lock(shared_->mutex);
        shared_->muted = muted_;
    }
    g_signal_connect_data(
        source, "pad-added", G_CALLBACK(onPadAdded), handOver(shared_, generation),
        [](gpointer data, GClosure*) { deleteContext(data); }, static_cast<GConnectFlags>(0));
    g_signal_connect(source, "source-setup", G_CALLBACK(onSourceSetup), nullptr);
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_bus_set_sync_handler(bus, onBusMessage, handOver(shared_, generation), deleteContext);
    gst_object_unref(bus);
    pipeline_ = pipeline;
    shared_->lastActivity.store(steadyNanos());
    const double stallLimit = item_->admission().remote ? kRemoteStallSeconds : kLocalStallSeconds;
    watchForStall(stallLimit, stallLimit);
    if (gst_element_set_state(pipeline_, GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE) {
        // The error itself arrives through the bus; nothing more to do here.
        platform::log(platform::LogLevel::Debug, "media: could not start " + item_->url());
    }
}

void GstPlayer::teardown() {
    // Reports of the old pipeline that are already queued are dropped by their generation.
    ++shared_->generation;
    stopStallWatch();
    if (!pipeline_) return;
    GstElement* pipeline = std::exchange(pipeline_, nullptr);
    // Joins GStreamer's threads: nothing calls back into this player afterwards.
    gst_element_set_state(pipeline, GST_STATE_NULL);
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
    gst_object_unref(bus);
    gst_object_unref(pipeline);
    std::lock_guard lock(shared_->mutex);
    if (shared_->volume) gst_object_unref(std::exchange(shared_->volume, nullptr));
    shared_->pendingFrame.reset();
    shared_->framePosted = false;
    prerolled_ = false;
    current_ = GST_STATE_NULL;
}

}  // namespace

GstMediaPlayerService::GstMediaPlayerService(std::shared_ptr<platform::RunLoop> mainLoop,
                                             std::string cachesDirectory)
    : loop_(std::move(mainLoop)), cachesDirectory_(std::move(cachesDirectory)) {}

GstMediaPlayerService::~GstMediaPlayerService() = default;

bool GstMediaPlayerService::available() {
    return initGStreamer();
}

std::shared_ptr<platform::PlayerItem> GstMediaPlayerService::createItem(const std::string& url) {
    return std::make_shared<GstItem>(url, admit(url, cachesDirectory_));
}

std::shared_ptr<platform::Player> GstMediaPlayerService::createPlayer(
    std::shared_ptr<platform::PlayerItem> item) {
    auto player = std::make_shared<GstPlayer>(loop_);
    player->bind();
    player->replaceCurrentItem(std::move(item));
    return player;
}

}  // namespace pelora::desktop
