#pragma once

#include <optional>
#include <string>

#include "pelora/ui/View.h"

namespace pelora::ui {

enum class TextAlignment : int { Left = 0, Center = 1, Right = 2 };

// Shows text. Like the phone platform's, it takes no touches unless told to.
class Label : public View {
  public:
    Label();
    explicit Label(Rect frame);

    std::string className() const override { return "Label"; }

    const std::optional<std::string>& text() const { return text_; }
    void setText(std::optional<std::string> text) { text_ = std::move(text); }
    Color textColor() const { return textColor_; }
    void setTextColor(Color color) { textColor_ = color; }
    double fontSize() const { return fontSize_; }
    void setFontSize(double size) { fontSize_ = size; }
    TextAlignment textAlignment() const { return alignment_; }
    void setTextAlignment(TextAlignment alignment) { alignment_ = alignment; }
    // 0 means as many lines as the text needs.
    int numberOfLines() const { return numberOfLines_; }
    void setNumberOfLines(int lines) { numberOfLines_ = lines; }

    std::string describeDetails() const override;

  private:
    std::optional<std::string> text_;
    Color textColor_ = Color::black();
    double fontSize_ = 17;
    TextAlignment alignment_ = TextAlignment::Left;
    int numberOfLines_ = 1;
};

}  // namespace pelora::ui
