#include "pelora/ui/GestureRecognizer.h"

namespace pelora::ui {

Point GestureRecognizer::locationInView(const View* view) const {
    return view ? view->convertPointFromView(rootLocation_, nullptr) : rootLocation_;
}

void GestureRecognizer::setLocation(Point rootPoint) {
    rootLocation_ = rootPoint;
}

TapGestureRecognizer::TapGestureRecognizer(Action action) {
    addTarget(std::move(action));
}

void TapGestureRecognizer::addTarget(Action action) {
    if (action) actions_.push_back(std::move(action));
}

bool TapGestureRecognizer::deliverTap(Point rootPoint) {
    if (!enabled() || !view()) return false;
    // An action may remove this recognizer from its view and drop the last reference.
    auto self = shared_from_this();
    setLocation(rootPoint);
    state_ = GestureRecognizerState::Recognized;
    auto actions = actions_;
    for (auto& action : actions) action(*this);
    state_ = GestureRecognizerState::Possible;
    return true;
}

}  // namespace pelora::ui
