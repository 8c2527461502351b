#include "pelora/testing/ScriptedMediaPlayer.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "pelora/platform/Services.h"

namespace pelora::testing {

namespace {

constexpr int64_t kMicros = 1000000;
// Clock values go through doubles; positions this close to an event count as at it.
constexpr int64_t kSnapMicros = 2;

int64_t toMicros(double seconds) {
    return static_cast<int64_t>(std::llround(seconds * static_cast<double>(kMicros)));
}

}  // namespace

// ---- item --------------------------------------------------------------------------------------

class ScriptedItem final : public platform::PlayerItem,
                           public std::enable_shared_from_this<ScriptedItem> {
  public:
    ScriptedItem(const ScriptedMediaPlayerService& service, std::string url, MediaScript script)
        : service_(service), url_(std::move(url)), script_(std::move(script)) {}
    ~ScriptedItem() override {
        if (loadTimer_) loadTimer_->invalidate();
    }

    const std::string& url() const override { return url_; }
    platform::PlayerItemStatus status() const override { return status_; }
    std::optional<platform::Error> error() const override { return error_; }
    platform::MediaTime duration() const override {
        if (status_ != platform::PlayerItemStatus::ReadyToPlay || !script_.durationKnown) return {};
        return platform::MediaTime{toMicros(script_.duration), kMicros};
    }
    platform::MediaTime assetDuration() const override { return duration(); }

    std::shared_ptr<platform::MediaObservation> observeStatus(std::function<void()> changed,
                                                              bool initial) override {
        return statusObservers_.add(std::move(changed), initial);
    }

    const MediaScript& script() const { return script_; }
    int64_t durationMicros() const { return toMicros(script_.duration); }
    int countPlay() { return ++playCount_; }

    void attach(const std::shared_ptr<ScriptedPlayer>& player) {
        player_ = player;
        startLoading();
    }
    void detach() {
        player_.reset();
        ++generation_;
        if (loadTimer_) loadTimer_->invalidate();
        loadTimer_.reset();
    }

    // Loads (again): Unknown now, ready or failed after the script's time to ready.
    void startLoading() {
        setStatus(platform::PlayerItemStatus::Unknown, std::nullopt);
        later(script_.timeToReady, [](ScriptedItem& item) {
            if (item.script_.failToLoad)
                item.settle(platform::PlayerItemStatus::Failed, item.script_.error);
            else
                item.settle(platform::PlayerItemStatus::ReadyToPlay, std::nullopt);
        });
    }

    // Fails on the next turn.
    void failNextTurn() {
        later(0, [](ScriptedItem& item) {
            item.settle(platform::PlayerItemStatus::Failed, item.script_.error);
        });
    }

  private:
    // Runs `step` after `seconds` of the loop's clock, or on the loop's next turn for 0;
    // a newer step (or detaching) cancels a pending one.
    void later(double seconds, std::function<void(ScriptedItem&)> step) {
        if (loadTimer_) loadTimer_->invalidate();
        loadTimer_.reset();
        const uint64_t generation = ++generation_;
        std::weak_ptr<ScriptedItem> weak = weak_from_this();
        auto run = [weak, generation, step = std::move(step)] {
            auto item = weak.lock();
            if (!item || item->generation_ != generation) return;
            item->loadTimer_.reset();
            step(*item);
        };
        if (seconds <= 0) {
            service_.loop().post(std::move(run));
        } else {
            loadTimer_ = service_.loop().scheduleTimer(seconds, false, [run](auto&) { run(); });
        }
    }

    void settle(platform::PlayerItemStatus status, std::optional<platform::Error> error) {
        auto keep = shared_from_this();
        auto player = player_.lock();
        // Time counts from here on, not from when play() was asked for.
        if (player && player->item_ == keep) player->settlePosition();
        setStatus(status, std::move(error));
        if (player && player->item_ == keep) player->itemSettled(*this);
    }

    void setStatus(platform::PlayerItemStatus status, std::optional<platform::Error> error) {
        const bool changed = status != status_;
        status_ = status;
        error_ = std::move(error);
        if (!changed) return;
        statusObservers_.notify();
    }

    const ScriptedMediaPlayerService& service_;
    std::string url_;
    MediaScript script_;
    platform::PlayerItemStatus status_ = platform::PlayerItemStatus::Unknown;
    std::optional<platform::Error> error_;
    platform::StatusObservers statusObservers_;
    std::weak_ptr<ScriptedPlayer> player_;
    std::shared_ptr<platform::Timer> loadTimer_;
    uint64_t generation_ = 0;
    int playCount_ = 0;
};

// ---- service -----------------------------------------------------------------------------------

ScriptedMediaPlayerService::ScriptedMediaPlayerService(std::shared_ptr<platform::RunLoop> loop)
    : loop_(std::move(loop)) {}

platform::RunLoop& ScriptedMediaPlayerService::loop() const {
    if (loop_) return *loop_;
    return *platform::services().mainRunLoop;
}

std::shared_ptr<platform::PlayerItem> ScriptedMediaPlayerService::createItem(
    const std::string& url) {
    itemURLs_.push_back(url);
    auto it = scripts_.find(url);
    return std::make_shared<ScriptedItem>(*this, url,
                                          it != scripts_.end() ? it->second : defaultScript_);
}

std::shared_ptr<platform::Player> ScriptedMediaPlayerService::createPlayer(
    std::shared_ptr<platform::PlayerItem> item) {
    auto player = std::make_shared<ScriptedPlayer>(*this);
    ++playersCreated_;
    lastPlayer_ = player;
    player->replaceCurrentItem(std::move(item));
    return player;
}

// ---- player ------------------------------------------------------------------------------------

ScriptedPlayer::ScriptedPlayer(const ScriptedMediaPlayerService& service) : service_(service) {}

ScriptedPlayer::~ScriptedPlayer() {
    if (timer_) timer_->invalidate();
    if (item_) item_->detach();
}

std::shared_ptr<platform::PlayerItem> ScriptedPlayer::currentItem() const {
    return item_;
}

int64_t ScriptedPlayer::nowMicros() const {
    return toMicros(service_.loop().clock().monotonicSeconds());
}

double ScriptedPlayer::position() const {
    int64_t position = positionMicros_;
    if (advancing()) position += static_cast<int64_t>((nowMicros() - anchorMicros_) * rate_);
    if (item_ && position > item_->durationMicros()) position = item_->durationMicros();
    return static_cast<double>(position) / kMicros;
}

bool ScriptedPlayer::advancing() const {
    return rate_ > 0 && item_ && item_->status() == platform::PlayerItemStatus::ReadyToPlay &&
           stallUntilMicros_ < 0 && positionMicros_ < item_->durationMicros();
}

void ScriptedPlayer::settlePosition() {
    const int64_t now = nowMicros();
    if (advancing()) {
        positionMicros_ += static_cast<int64_t>((now - anchorMicros_) * rate_);
        if (positionMicros_ > item_->durationMicros()) positionMicros_ = item_->durationMicros();
    }
    anchorMicros_ = now;
}

platform::TimeControlStatus ScriptedPlayer::timeControlStatus() const {
    if (rate_ == 0) return platform::TimeControlStatus::Paused;
    return advancing() ? platform::TimeControlStatus::Playing
                       : platform::TimeControlStatus::WaitingToPlayAtSpecifiedRate;
}

platform::MediaTime ScriptedPlayer::currentTime() const {
    return platform::MediaTime{toMicros(position()), kMicros};
}

void ScriptedPlayer::replaceCurrentItem(std::shared_ptr<platform::PlayerItem> item) {
    settlePosition();
    if (item_) item_->detach();
    item_ = std::dynamic_pointer_cast<ScriptedItem>(item);
    positionMicros_ = 0;
    stallUntilMicros_ = -1;
    stallsDone_.clear();
    nextFrameMicros_ = 0;
    if (item_) item_->attach(shared_from_this());
    reschedule();
}

void ScriptedPlayer::play() {
    ++playCalls_;
    settlePosition();
    rate_ = 1.0;
    if (item_) {
        const int count = item_->countPlay();
        if (item_->script().failOnPlay.count(count)) {
            item_->failNextTurn();
        } else if (item_->status() == platform::PlayerItemStatus::Failed) {
            item_->startLoading();
        }
    }
    reschedule();
}

void ScriptedPlayer::pause() {
    ++pauseCalls_;
    setRate(0);
}

void ScriptedPlayer::setRate(double rate) {
    settlePosition();
    rate_ = rate < 0 ? 0 : rate;
    reschedule();
}

std::shared_ptr<platform::MediaObservation> ScriptedPlayer::addPeriodicTimeObserver(
    platform::MediaTime interval, std::function<void(platform::MediaTime)> block) {
    const uint64_t id = nextObserverId_++;
    int64_t micros = toMicros(interval.seconds());
    if (micros < 1000) micros = 1000;
    timeObservers_[id] = TimeObserver{micros, std::move(block)};
    std::weak_ptr<ScriptedPlayer> weak = weak_from_this();
    reschedule();
    return std::make_shared<platform::CallbackObservation>([weak, id] {
        if (auto player = weak.lock()) {
            player->timeObservers_.erase(id);
            player->reschedule();
        }
    });
}

void ScriptedPlayer::setVideoOutput(
    std::function<void(std::shared_ptr<const platform::VideoFrame>)> output) {
    output_ = std::move(output);
}

void ScriptedPlayer::itemSettled(ScriptedItem& item) {
    if (&item != item_.get()) return;
    settlePosition();
    if (item.status() == platform::PlayerItemStatus::ReadyToPlay) {
        // The first frame is there as soon as the item is, as a prerolled pipeline's would be.
        if (nextFrameMicros_ == 0) {
            deliverFrame();
            const double fps = item.script().frameRate;
            nextFrameMicros_ = fps > 0 ? positionMicros_ + toMicros(1.0 / fps) : INT64_MAX;
        }
    } else if (item.status() == platform::PlayerItemStatus::Failed) {
        rate_ = 0;
    }
    reschedule();
}

void ScriptedPlayer::reschedule() {
    ++timerGeneration_;
    if (timer_) timer_->invalidate();
    timer_.reset();
    if (rate_ <= 0 || !item_ || item_->status() != platform::PlayerItemStatus::ReadyToPlay) return;
    const int64_t now = nowMicros();
    settlePosition();
    int64_t due;  // clock micros of the next event
    if (stallUntilMicros_ >= 0) {
        due = stallUntilMicros_;
    } else {
        const int64_t end = item_->durationMicros();
        int64_t next = end;  // position of the next event
        for (const auto& [id, observer] : timeObservers_) {
            int64_t tick =
                (positionMicros_ / observer.intervalMicros + 1) * observer.intervalMicros;
            if (tick < next) next = tick;
        }
        for (const auto& [at, wait] : item_->script().stalls) {
            int64_t stall = toMicros(at);
            if (stall >= positionMicros_ && !stallsDone_.count(stall) && stall < next) next = stall;
        }
        if (item_->script().frameRate > 0 && nextFrameMicros_ > positionMicros_ &&
            nextFrameMicros_ < next)
            next = nextFrameMicros_;
        due = now + static_cast<int64_t>(static_cast<double>(next - positionMicros_) / rate_);
    }
    std::weak_ptr<ScriptedPlayer> weak = weak_from_this();
    const uint64_t generation = ++timerGeneration_;
    auto fire = [weak, generation] {
        auto player = weak.lock();
        if (player && player->timerGeneration_ == generation) player->onTimer();
    };
    const double delay = static_cast<double>(due - now) / kMicros;
    if (delay <= 0) {
        // Due now: on the next turn, without the clock moving.
        service_.loop().post(std::move(fire));
    } else {
        timer_ = service_.loop().scheduleTimer(delay, false, [fire](auto&) { fire(); });
    }
}

void ScriptedPlayer::onTimer() {
    // Observers may release the player (a page closing); finish this turn first.
    auto keep = shared_from_this();
    timer_.reset();
    if (!item_) return;
    const int64_t previous = positionMicros_;
    settlePosition();
    const int64_t now = nowMicros();
    if (stallUntilMicros_ >= 0 && now + kSnapMicros >= stallUntilMicros_) stallUntilMicros_ = -1;

    for (const auto& [at, wait] : item_->script().stalls) {
        int64_t stall = toMicros(at);
        if (stallsDone_.count(stall) || std::llabs(positionMicros_ - stall) > kSnapMicros) continue;
        positionMicros_ = stall;
        stallsDone_.insert(stall);
        stallUntilMicros_ = now + toMicros(wait);
    }
    const int64_t frameStep =
        item_->script().frameRate > 0 ? toMicros(1.0 / item_->script().frameRate) : 0;
    if (frameStep > 0 && positionMicros_ + kSnapMicros >= nextFrameMicros_) {
        deliverFrame();
        while (nextFrameMicros_ <= positionMicros_ + kSnapMicros) nextFrameMicros_ += frameStep;
    }
    const int64_t end = item_->durationMicros();
    if (positionMicros_ + kSnapMicros >= end) {
        positionMicros_ = end;
        reachEnd();
        return;
    }
    // Ticks at whole multiples of each observer's interval.
    std::vector<std::function<void(platform::MediaTime)>> due;
    for (const auto& [id, observer] : timeObservers_) {
        int64_t tick =
            (positionMicros_ + kSnapMicros) / observer.intervalMicros * observer.intervalMicros;
        if (tick > previous && std::llabs(positionMicros_ - tick) <= kSnapMicros) {
            positionMicros_ = tick;
            due.push_back(observer.block);
        }
    }
    reschedule();
    const platform::MediaTime time = currentTime();
    for (auto& block : due)
        if (block) block(time);
}

void ScriptedPlayer::reachEnd() {
    settlePosition();
    rate_ = 0;
    reschedule();
    notifyTime();
}

void ScriptedPlayer::notifyTime() {
    const platform::MediaTime time = currentTime();
    std::vector<std::function<void(platform::MediaTime)>> blocks;
    for (const auto& [id, observer] : timeObservers_) blocks.push_back(observer.block);
    for (auto& block : blocks)
        if (block) block(time);
}

void ScriptedPlayer::deliverFrame() {
    auto frame = std::make_shared<platform::VideoFrame>();
    frame->width = 2;
    frame->height = 2;
    frame->stride = 8;
    frame->rgba.assign(16, static_cast<uint8_t>(framesDelivered_ * 40 % 256));
    frame->presentationTime = platform::MediaTime{positionMicros_, kMicros};
    frame->sequence = ++framesDelivered_;
    if (output_) output_(frame);
}

}  // namespace pelora::testing
