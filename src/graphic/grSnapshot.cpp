// Writes the picture of the frame being drawn into a PNG file: the viewer's
// snapshots and bwrender's frames.
#include <GL/gl.h>
#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <vector>

#include "graphic.h"

int grReadFrameRgb(int width, int height, std::vector<unsigned char> *pixels) {
    if (width < 1 || height < 1) return 0;
    // The buffer the frame draws into: the back one when double-buffered, the
    // front one otherwise, also for a single-buffered run on a double-buffered format.
    GLint drawBuffer = GL_BACK, packAlignment = 4;
    glGetIntegerv(GL_DRAW_BUFFER, &drawBuffer);
    glGetIntegerv(GL_PACK_ALIGNMENT, &packAlignment);
    glReadBuffer(static_cast<GLenum>(drawBuffer));
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    pixels->resize(static_cast<size_t>(width) * 3 * static_cast<size_t>(height));
    glReadPixels(0, 0, width, height, GL_RGB, GL_UNSIGNED_BYTE, pixels->data());
    glPixelStorei(GL_PACK_ALIGNMENT, packAlignment);
    return 1;
}

namespace {

// libpng reports a fault through longjmp; the message is kept for the report.
void pngError(png_structp png, png_const_charp message) {
    snprintf(static_cast<char *>(png_get_error_ptr(png)), 256, "%s", message);
    png_longjmp(png, 1);
}
void pngWarning(png_structp, png_const_charp) {}

}  // namespace

int pngWriteRgb(const char *file, int width, int height, const unsigned char *pixels) {
    FILE *out = fopen(file, "wb");
    if (!out) {
        fprintf(stderr, "Snapshot: cannot write %s\n", file);
        return 0;
    }
    char message[256] = "write error";
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, message, pngError, pngWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    int written = 0;
    if (info && !setjmp(png_jmpbuf(png))) {
        png_init_io(png, out);
        // Speed before size: frames are written as fast as they are drawn,
        // and flat rendered pictures pack well without filters all the same.
        png_set_compression_level(png, 1);
        png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_NONE);
        png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8,
                     PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_BASE, PNG_FILTER_TYPE_BASE);
        png_write_info(png, info);
        // GL's rows run bottom to top: the PNG's first row is the last one.
        const size_t rowBytes = static_cast<size_t>(width) * 3;
        for (int y = height - 1; y >= 0; --y) png_write_row(png, pixels + static_cast<size_t>(y) * rowBytes);
        png_write_end(png, nullptr);
        written = 1;
    }
    png_destroy_write_struct(png ? &png : nullptr, info ? &info : nullptr);
    if (fclose(out) != 0) written = 0;
    if (!written) fprintf(stderr, "Snapshot: cannot write %s: %s\n", file, message);
    return written;
}

int snapshotWritePng(const char *file, int width, int height) {
    if (!file || !*file) {
        fprintf(stderr, "Snapshot: no file name\n");
        return 0;
    }
    if (width < 1 || height < 1) {
        fprintf(stderr, "Snapshot: nothing to write to %s (%d x %d)\n", file, width, height);
        return 0;
    }
    std::vector<unsigned char> pixels;
    grReadFrameRgb(width, height, &pixels);
    return pngWriteRgb(file, width, height, pixels.data());
}
