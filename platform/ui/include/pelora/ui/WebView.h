#pragma once

#include <optional>
#include <string>

#include "pelora/platform/Export.h"
#include "pelora/ui/View.h"

namespace pelora::ui {

// A web view for HTML an ad brings along. Loading and drawing pages is a renderer's job;
// here the view records what it was given. It never fetches anything by itself.
class PELORA_EXPORT WebView : public View {
  public:
    WebView() = default;
    explicit WebView(Rect frame) : View(frame) {}

    std::string className() const override { return "WebView"; }

    void loadHTMLString(std::string html, std::optional<std::string> baseURL);
    const std::optional<std::string>& loadedHTML() const { return html_; }
    const std::optional<std::string>& baseURL() const { return baseURL_; }

    std::string describeDetails() const override;

  private:
    std::optional<std::string> html_;
    std::optional<std::string> baseURL_;
};

}  // namespace pelora::ui
