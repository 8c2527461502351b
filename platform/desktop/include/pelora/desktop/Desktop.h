#pragma once

// The Linux platform in one include: installing the real services, the application's life
// cycle, and showing the view tree (a window, screenshots, frames for a game engine).

#include "pelora/desktop/DesktopPlatform.h"
#include "pelora/desktop/DesktopWindow.h"
#include "pelora/desktop/FramePresenter.h"
#include "pelora/desktop/ViewRenderer.h"
