// Reads an 8-bit RGB PNG written by the viewer's snapshot, for checking pixels.
#pragma once

#include <png.h>

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

}  // namespace bwtest
