// Writes the picture of the frame being drawn into a PNG file: the viewer's
// snapshots and bwrender's frames.
#include <GL/gl.h>
#include <png.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "graphic.h"

int snapshotWritePng(const char *file, int width, int height) {
    if (!file || !*file) {
        fprintf(stderr, "Snapshot: no file name\n");
        return 0;
    }
    if (width < 1 || height < 1) {
        fprintf(stderr, "Snapshot: nothing to write to %s (%d x %d)\n", file, width, height);
        return 0;
    }
    // The buffer the frame draws into: the back one when double-buffered, the
    // front one otherwise, also for a single-buffered run on a double-buffered format.
    GLint drawBuffer = GL_BACK, packAlignment = 4;
    glGetIntegerv(GL_DRAW_BUFFER, &drawBuffer);
    glGetIntegerv(GL_PACK_ALIGNMENT, &packAlignment);
    glReadBuffer(static_cast<GLenum>(drawBuffer));
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    size_t rowBytes = static_cast<size_t>(width) * 3;
    std::vector<unsigned char> pixels(rowBytes * static_cast<size_t>(height));
    glReadPixels(0, 0, width, height, GL_RGB, GL_UNSIGNED_BYTE, pixels.data());
    glPixelStorei(GL_PACK_ALIGNMENT, packAlignment);

    FILE *out = fopen(file, "wb");
    if (!out) {
        fprintf(stderr, "Snapshot: cannot write %s\n", file);
        return 0;
    }
    png_image image;
    memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_RGB;
    // GL's rows run bottom to top; a negative stride hands them to PNG top first.
    png_int_32 stride = -static_cast<png_int_32>(rowBytes);
    int written = png_image_write_to_stdio(&image, out, 0, pixels.data(), stride, nullptr);
    if (fclose(out) != 0) written = 0;
    if (!written) {
        fprintf(stderr, "Snapshot: cannot write %s: %s\n", file,
                image.message[0] ? image.message : "write error");
        png_image_free(&image);
        return 0;
    }
    return 1;
}
