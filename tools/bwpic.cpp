// bwpic: pictures of a database to PNG and back.
//
//   bwpic IN.pic OUT.png       a picture as PNG (RGB, or RGBA when it has alpha)
//   bwpic IN.png OUT.pic       a PNG as a picture, run-length coded
//   bwpic --planes IN.png OUT.pic   the same, one uncompressed packet per plane
#include <png.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fileio.h"

namespace {

bool endsWith(const std::string &s, const char *suffix) {
    size_t n = strlen(suffix);
    return s.size() >= n && strcasecmp(s.c_str() + s.size() - n, suffix) == 0;
}

// A .pic's planes, bottom row first, into an RGBA buffer, top row first.
int picToPng(const char *in, const char *out) {
    PictureInfo pic{};
    if (!picRead(in, &pic)) return 1;
    const bool alpha = pic.planes[3] != nullptr;
    const int channels = alpha ? 4 : 3;
    std::vector<uint8_t> pixels(static_cast<size_t>(pic.width) * pic.height * channels);
    for (int row = 0; row < pic.height; ++row)
        for (int x = 0; x < pic.width; ++x) {
            size_t from = static_cast<size_t>(row) * pic.width + x;
            uint8_t *to = &pixels[(static_cast<size_t>(pic.height - 1 - row) * pic.width + x) * channels];
            for (int k = 0; k < channels; ++k) to[k] = pic.planes[k] ? pic.planes[k][from] : 0;
        }
    png_image image;
    memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = pic.width;
    image.height = pic.height;
    image.format = alpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
    int ok = png_image_write_to_file(&image, out, 0, pixels.data(), 0, nullptr);
    picFree(&pic);
    if (!ok) {
        fprintf(stderr, "bwpic: cannot write %s: %s\n", out, image.message);
        return 1;
    }
    return 0;
}

int pngToPic(const char *in, const char *out, int mode) {
    png_image image;
    memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, in)) {
        fprintf(stderr, "bwpic: cannot read %s: %s\n", in, image.message);
        return 1;
    }
    if (image.width > 65535 || image.height > 65535) {
        fprintf(stderr, "bwpic: %s is %u x %u; a picture holds at most 65535 x 65535\n", in,
                image.width, image.height);
        png_image_free(&image);
        return 1;
    }
    const bool alpha = (image.format & PNG_FORMAT_FLAG_ALPHA) != 0;
    image.format = PNG_FORMAT_RGBA;
    std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr)) {
        fprintf(stderr, "bwpic: cannot read %s: %s\n", in, image.message);
        return 1;
    }
    PictureInfo pic{};
    pic.width = static_cast<uint16_t>(image.width);
    pic.height = static_cast<uint16_t>(image.height);
    size_t count = static_cast<size_t>(pic.width) * pic.height;
    const int planes = alpha ? 4 : 3;
    std::vector<std::vector<uint8_t>> store(planes, std::vector<uint8_t>(count));
    for (int k = 0; k < planes; ++k) pic.planes[k] = store[k].data();
    for (int row = 0; row < pic.height; ++row)
        for (int x = 0; x < pic.width; ++x) {
            const uint8_t *from = &pixels[(static_cast<size_t>(row) * pic.width + x) * 4];
            size_t to = static_cast<size_t>(pic.height - 1 - row) * pic.width + x;
            for (int k = 0; k < planes; ++k) pic.planes[k][to] = from[k];
        }
    pic.ratio = static_cast<float>(pic.width) / static_cast<float>(pic.height);
    return picWriteImage(out, &pic, mode) ? 0 : 1;
}

}  // namespace

int main(int argc, char *argv[]) {
    int mode = PIC_WRITE_RUNS;
    int first = 1;
    if (argc > 1 && strcmp(argv[1], "--planes") == 0) {
        mode = PIC_WRITE_PLANES;
        first = 2;
    }
    if (argc - first != 2) {
        fprintf(stderr, "Usage: %s [--planes] IN.pic OUT.png | IN.png OUT.pic\n", argv[0]);
        return 2;
    }
    std::string in = argv[first], out = argv[first + 1];
    if (endsWith(in, ".pic") && endsWith(out, ".png")) return picToPng(in.c_str(), out.c_str());
    if (endsWith(in, ".png") && endsWith(out, ".pic")) return pngToPic(in.c_str(), out.c_str(), mode);
    fprintf(stderr, "bwpic: converts .pic to .png or .png to .pic, not %s to %s\n", in.c_str(), out.c_str());
    return 2;
}
