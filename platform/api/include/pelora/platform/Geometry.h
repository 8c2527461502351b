#pragma once

#include "pelora/platform/Export.h"

namespace pelora::platform {

struct PELORA_EXPORT Point {
    double x = 0;
    double y = 0;
    bool operator==(const Point&) const = default;
};

struct PELORA_EXPORT Size {
    double width = 0;
    double height = 0;
    bool operator==(const Size&) const = default;
};

struct PELORA_EXPORT Rect {
    Point origin;
    Size size;
    double minX() const { return origin.x; }
    double minY() const { return origin.y; }
    double maxX() const { return origin.x + size.width; }
    double maxY() const { return origin.y + size.height; }
    double width() const { return size.width; }
    double height() const { return size.height; }
    bool contains(Point p) const {
        return p.x >= minX() && p.x < maxX() && p.y >= minY() && p.y < maxY();
    }
    bool operator==(const Rect&) const = default;
};

inline Rect makeRect(double x, double y, double w, double h) {
    return Rect{{x, y}, {w, h}};
}

}  // namespace pelora::platform
