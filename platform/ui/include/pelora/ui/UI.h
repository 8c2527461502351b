#pragma once

// The whole view tree in one include.
#include "pelora/ui/Button.h"
#include "pelora/ui/GestureRecognizer.h"
#include "pelora/ui/ImageView.h"
#include "pelora/ui/Label.h"
#include "pelora/ui/PlayerLayer.h"
#include "pelora/ui/View.h"
#include "pelora/ui/ViewController.h"
#include "pelora/ui/WebView.h"
#include "pelora/ui/Window.h"
