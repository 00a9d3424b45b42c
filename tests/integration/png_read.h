// Reads an 8-bit RGB PNG written by the viewer's snapshot, for checking pixels.
#pragma once

#include <gtest/gtest.h>
#include <png.h>

#include <cmath>

#include <cstdio>
#include <string>
#include <vector>

namespace bwtest {

struct Image {
    int width = 0, height = 0;
    std::vector<unsigned char> rgb;  // rows top first, 3 bytes a pixel
    const unsigned char *at(int x, int y) const { return &rgb[(static_cast<size_t>(y) * width + x) * 3]; }
};

inline bool readPng(const std::string &path, Image *image) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str())) return false;
    png.format = PNG_FORMAT_RGB;
    image->width = static_cast<int>(png.width);
    image->height = static_cast<int>(png.height);
    image->rgb.resize(PNG_IMAGE_SIZE(png));
    bool ok = png_image_finish_read(&png, nullptr, image->rgb.data(), 0, nullptr) != 0;
    png_image_free(&png);
    return ok;
}

// Pixel (column, row from the top) of the point (x, y, 0) in a w x h snapshot
// of the default camera at (0, 0, 10), 0.7854 radians high.
inline void planePixel(float x, float y, int w, int h, int *px, int *py) {
    const float tanHalf = std::tan(0.7854f / 2), aspect = float(w) / float(h);
    *px = static_cast<int>((x / (10.0f * tanHalf * aspect) + 1.0f) * float(w) / 2);
    *py = static_cast<int>(float(h) - (y / (10.0f * tanHalf) + 1.0f) * float(h) / 2);
}

// The pixel of the plane point (x, y, 0) is `want` (0 to 1), each channel
// within `tolerance`.
inline void expectPlaneColour(const Image &image, float x, float y, const float want[3], int tolerance = 1) {
    int px, py;
    planePixel(x, y, image.width, image.height, &px, &py);
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(image.at(px, py)[k], want[k] * 255.0f, tolerance) << "channel " << k << " at " << x << "," << y;
}
}  // namespace bwtest
