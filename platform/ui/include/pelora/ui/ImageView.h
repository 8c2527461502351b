#pragma once

#include <memory>

#include "pelora/platform/Export.h"
#include "pelora/platform/Image.h"
#include "pelora/ui/View.h"

namespace pelora::ui {

// Shows one image. Like the phone platform's, it takes no touches unless told to.
class PELORA_EXPORT ImageView : public View {
  public:
    ImageView();
    explicit ImageView(Rect frame);

    std::string className() const override { return "ImageView"; }

    const std::shared_ptr<platform::Image>& image() const { return image_; }
    void setImage(std::shared_ptr<platform::Image> image) { update(image_, std::move(image)); }

    std::string describeDetails() const override;

  private:
    std::shared_ptr<platform::Image> image_;
};

}  // namespace pelora::ui
