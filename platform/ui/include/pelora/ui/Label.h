#pragma once

#include <optional>
#include <string>

#include "pelora/platform/Export.h"
#include "pelora/ui/View.h"

namespace pelora::ui {

enum class TextAlignment : int { Left = 0, Center = 1, Right = 2 };

// How text that does not fit is wrapped or cut, numbered as the phone platform numbers them.
enum class LineBreakMode : int {
    WordWrap = 0,
    CharWrap = 1,
    Clip = 2,
    TruncatingHead = 3,
    TruncatingTail = 4,
    TruncatingMiddle = 5,
};

enum class FontWeight : int { Regular = 0, Bold = 1 };

// Shows text. Like the phone platform's, it takes no touches unless told to.
class PELORA_EXPORT Label : public View {
  public:
    Label();
    explicit Label(Rect frame);

    std::string className() const override { return "Label"; }

    const std::optional<std::string>& text() const { return text_; }
    void setText(std::optional<std::string> text) { update(text_, std::move(text)); }
    Color textColor() const { return textColor_; }
    void setTextColor(Color color) { update(textColor_, color); }
    // The system font (a sans serif covering Latin and Chinese) at this size in points.
    double fontSize() const { return fontSize_; }
    void setFontSize(double size) { update(fontSize_, size); }
    FontWeight fontWeight() const { return fontWeight_; }
    void setFontWeight(FontWeight weight) { update(fontWeight_, weight); }
    TextAlignment textAlignment() const { return alignment_; }
    void setTextAlignment(TextAlignment alignment) { update(alignment_, alignment); }
    // 0 means as many lines as fit in the bounds. Text is centred vertically in the bounds.
    int numberOfLines() const { return numberOfLines_; }
    void setNumberOfLines(int lines) { update(numberOfLines_, lines); }
    // The last line that fits is cut as this says (an ellipsis at the end by default).
    LineBreakMode lineBreakMode() const { return lineBreakMode_; }
    void setLineBreakMode(LineBreakMode mode) { update(lineBreakMode_, mode); }

    std::string describeDetails() const override;

  private:
    std::optional<std::string> text_;
    Color textColor_ = Color::black();
    double fontSize_ = 17;
    FontWeight fontWeight_ = FontWeight::Regular;
    TextAlignment alignment_ = TextAlignment::Left;
    int numberOfLines_ = 1;
    LineBreakMode lineBreakMode_ = LineBreakMode::TruncatingTail;
};

}  // namespace pelora::ui
