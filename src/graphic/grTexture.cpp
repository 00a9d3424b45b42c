// Pictures made ready for the hardware and the texture lists that hold them:
// a texture's picture read, cropped, tiled in the image, widened to close the
// wrap of a cylindrical or spherical map and sized to powers of two within
// the limit; then compiled into its list with its filters and wrap.
#include <GL/gl.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "database.h"
#include "fileio.h"
#include "graphic.h"
#include "material.h"
#include "bw_env.h"

namespace {

constexpr uint16_t MAP_CYLINDER = 5, MAP_SPHERE = 6;
constexpr int DEFAULT_SIZE_LIMIT = 256;

// An RGBA picture being worked on, bottom row first.
struct Image {
    int32_t width = 0, height = 0;  // pixels
    std::vector<uint8_t> rgba;      // 4 bytes a pixel

    uint8_t *at(int32_t x, int32_t y) { return &rgba[4 * (static_cast<size_t>(y) * width + x)]; }
    void resize(int32_t w, int32_t h) {
        width = w;
        height = h;
        rgba.assign(4 * static_cast<size_t>(w) * h, 0);
    }
};

// Planes to pixels; a missing colour plane reads 0, a missing alpha 255.
void imageFromPicture(const PictureInfo &p, Image &out) {
    out.resize(p.width, p.height);
    const size_t n = static_cast<size_t>(p.width) * p.height;
    for (int k = 0; k < 4; ++k) {
        uint8_t *to = out.rgba.data() + k;
        if (const uint8_t *from = p.planes[k])
            for (size_t i = 0; i < n; ++i) to[4 * i] = from[i];
        else if (k == 3)
            for (size_t i = 0; i < n; ++i) to[4 * i] = 255;
    }
}

int32_t clampTo(float v, int32_t hi) {
    if (!(v > 0.0f)) return 0;
    return v >= static_cast<float>(hi) ? hi : static_cast<int32_t>(v);
}

// Crop bounds are pixels, x from the left and y from the top, each pair
// lower bound included and upper excluded. A crop that leaves nothing, or
// all, keeps the picture as it is.
void imageCrop(Image &img, const Texture2D &t) {
    if (!t.cropOn) return;
    const int32_t x0 = clampTo(t.crop[0], img.width), x1 = clampTo(t.crop[1], img.width);
    const int32_t y0 = img.height - clampTo(t.crop[3], img.height);
    const int32_t y1 = img.height - clampTo(t.crop[2], img.height);
    if (x1 <= x0 || y1 <= y0 || (x1 - x0 == img.width && y1 - y0 == img.height)) return;
    Image out;
    out.resize(x1 - x0, y1 - y0);
    for (int32_t y = 0; y < out.height; ++y) memcpy(out.at(0, y), img.at(x0, y0 + y), 4 * static_cast<size_t>(out.width));
    img = std::move(out);
}

// The picture tiles u by tv times; with a mirror switch (`mirror`: the
// texture's own, or the viewer's for all) every second tile of that axis is
// mirrored. False when the result would be too big.
bool imageTile(Image &img, const Texture2D &t, const uint16_t mirrorSwitch[2]) {
    const int32_t tu = t.tiles[0] > 1 ? t.tiles[0] : 1, tv = t.tiles[1] > 1 ? t.tiles[1] : 1;
    if (tu == 1 && tv == 1) return true;
    if (static_cast<size_t>(img.width) * tu * img.height * tv > PIC_MAX_PIXELS) return false;
    const int mirror = (mirrorSwitch[0] ? 1 : 0) | (mirrorSwitch[1] ? 2 : 0);  // 1 u, 2 v, 3 both
    Image out;
    out.resize(img.width * tu, img.height * tv);
    for (int32_t y = 0; y < out.height; ++y) {
        const int32_t tileV = y / img.height, inV = y % img.height;
        const int32_t sy = (mirror & 2) && (tileV & 1) ? img.height - 1 - inV : inV;
        for (int32_t x = 0; x < out.width; ++x) {
            const int32_t tileU = x / img.width, inU = x % img.width;
            const int32_t sx = (mirror & 1) && (tileU & 1) ? img.width - 1 - inU : inU;
            memcpy(out.at(x, y), img.at(sx, sy), 4);
        }
    }
    img = std::move(out);
    return true;
}

// A cylindrical or spherical map covering more than half the way round
// draws the triangles across its seam from a second copy of the picture:
// the picture twice along the wrap axis, then as much again as the part of
// the turn it leaves open. The UV transform takes the same widening into
// account.
bool imageWiden(Image &img, const Texture2D &t) {
    if ((t.method != MAP_CYLINDER && t.method != MAP_SPHERE) || !(t.uScale > 0.5f) || stripOldUvConversion())
        return true;
    const bool alongV = t.swap == 1;
    const int32_t side = alongV ? img.height : img.width;
    const float open = 1.0f - t.uScale;
    const int32_t extra = open > 0.0f ? static_cast<int32_t>(std::floor(open * static_cast<float>(side))) : 0;
    const int32_t wide = 2 * side + extra;
    if (static_cast<size_t>(wide) * (alongV ? img.width : img.height) > PIC_MAX_PIXELS) return false;
    Image out;
    if (alongV) out.resize(img.width, wide);
    else out.resize(wide, img.height);
    for (int32_t y = 0; y < out.height; ++y)
        for (int32_t x = 0; x < out.width; ++x)
            memcpy(out.at(x, y), img.at(alongV ? x : x % side, alongV ? y % side : y), 4);
    img = std::move(out);
    return true;
}

// Area average over the source pixels each target pixel covers.
void imageResize(Image &img, int32_t w, int32_t h) {
    if (w == img.width && h == img.height) return;
    Image out;
    out.resize(w, h);
    for (int32_t y = 0; y < h; ++y) {
        const int32_t sy0 = static_cast<int32_t>(static_cast<int64_t>(y) * img.height / h);
        int32_t sy1 = static_cast<int32_t>(static_cast<int64_t>(y + 1) * img.height / h);
        if (sy1 <= sy0) sy1 = sy0 + 1;
        for (int32_t x = 0; x < w; ++x) {
            const int32_t sx0 = static_cast<int32_t>(static_cast<int64_t>(x) * img.width / w);
            int32_t sx1 = static_cast<int32_t>(static_cast<int64_t>(x + 1) * img.width / w);
            if (sx1 <= sx0) sx1 = sx0 + 1;
            uint32_t sum[4] = {0, 0, 0, 0};
            for (int32_t sy = sy0; sy < sy1; ++sy)
                for (int32_t sx = sx0; sx < sx1; ++sx) {
                    const uint8_t *p = img.at(sx, sy);
                    for (int k = 0; k < 4; ++k) sum[k] += p[k];
                }
            const uint32_t n = static_cast<uint32_t>((sy1 - sy0) * (sx1 - sx0));
            uint8_t *q = out.at(x, y);
            for (int k = 0; k < 4; ++k) q[k] = static_cast<uint8_t>((sum[k] + n / 2) / n);
        }
    }
    img = std::move(out);
}

// Alpha 0 on the outermost ring: a clamped decal ends at the picture.
void imageBorder(Image &img) {
    for (int32_t x = 0; x < img.width; ++x) img.at(x, 0)[3] = img.at(x, img.height - 1)[3] = 0;
    for (int32_t y = 0; y < img.height; ++y) img.at(0, y)[3] = img.at(img.width - 1, y)[3] = 0;
}

TexturePicture *pictureFromImage(const Image &img, int noAlpha, int flip) {
    const int components = noAlpha ? 3 : 4;
    const size_t n = static_cast<size_t>(img.width) * img.height;
    auto *out = static_cast<TexturePicture *>(calloc(1, sizeof(TexturePicture)));
    uint8_t *pixels = static_cast<uint8_t *>(malloc(n * components));
    if (!out || !pixels) {
        free(out);
        free(pixels);
        fprintf(stderr, "image too big, memory insufficient\n");
        return nullptr;
    }
    for (size_t i = 0; i < n; ++i)
        for (int k = 0; k < components; ++k)
            pixels[i * components + k] = img.rgba[4 * i + (flip ? components - 1 - k : k)];
    *out = TexturePicture{img.width, img.height, components, flip ? 1 : 0, pixels};
    return out;
}

TexturePicture *pictureCopy(const TexturePicture &p) {
    const size_t bytes = static_cast<size_t>(p.width) * p.height * p.components;
    auto *out = static_cast<TexturePicture *>(malloc(sizeof(TexturePicture)));
    uint8_t *pixels = static_cast<uint8_t *>(malloc(bytes));
    if (!out || !pixels) {
        free(out);
        free(pixels);
        return nullptr;
    }
    memcpy(pixels, p.pixels, bytes);
    *out = p;
    out->pixels = pixels;
    return out;
}

// What makes two loads give the same pixels.
struct LoadKey {
    std::string file;       // picture file read
    int32_t args[4];        // alphaFlag, flip, tile, noAlpha
    uint16_t kind;          // source kind
    uint16_t method, swap;  // the wrap widening
    uint16_t cropOn;        // crop switch
    float crop[4];          // crop bounds
    float uScale;           // coverage of the wrap
    uint16_t tiles[2];      // tile counts
    uint16_t mirror[2];     // mirror switches

    bool operator==(const LoadKey &o) const {
        return file == o.file && memcmp(args, o.args, sizeof args) == 0 && kind == o.kind &&
               method == o.method && swap == o.swap && cropOn == o.cropOn &&
               memcmp(crop, o.crop, sizeof crop) == 0 && uScale == o.uScale &&
               memcmp(tiles, o.tiles, sizeof tiles) == 0 && memcmp(mirror, o.mirror, sizeof mirror) == 0;
    }
};

struct CacheEntry {
    LoadKey key;               // the load that made it
    TexturePicture *picture;   // its result, owned by the cache
};

struct PictureCache {
    std::vector<CacheEntry> entries;  // one per picture loaded in the run
};

PictureCache *cacheOf(BW_GraphicProps *gprops) {
    return gprops ? static_cast<PictureCache *>(gprops->pictureCache) : nullptr;
}

}  // namespace

void texturePictureFree(TexturePicture *picture) {
    if (!picture) return;
    free(picture->pixels);
    free(picture);
}

int textureFitSize(int side, int limit) {
    if (side < 1) return 1;
    int size = 1;
    while (size <= side / 2) size *= 2;
    while (limit > 0 && size > limit) size /= 2;
    return size;
}

int textureSizeLimitParse(const char *value) {
    if (!value) return DEFAULT_SIZE_LIMIT;
    if (strcmp(value, "OFF") == 0) return 0;
    char *end = nullptr;
    const long n = strtol(value, &end, 10);
    if (end == value) return DEFAULT_SIZE_LIMIT;
    if (n <= 0) return 0;
    return textureFitSize(n > (1L << 30) ? (1 << 30) : static_cast<int>(n), 0);
}

int textureSizeLimit() {
    static const int limit = textureSizeLimitParse(envGet(ENV_BW_SHADE_TEXSIZE_LIMIT));
    return limit;
}

void textureCacheBegin(BW_GraphicProps *gprops) {
    if (!gprops || gprops->pictureCache) return;
    gprops->pictureCache = new PictureCache;
    gprops->pictureCacheCount = 0;
}

void textureCacheEnd(BW_GraphicProps *gprops) {
    PictureCache *cache = cacheOf(gprops);
    if (!cache) return;
    for (CacheEntry &e : cache->entries) texturePictureFree(e.picture);
    delete cache;
    gprops->pictureCache = nullptr;
    gprops->pictureCacheCount = 0;
}

TexturePicture *textureLoad(const Texture2D *t, const char *path, int alphaFlag, int flip, int tile,
                            int noAlpha, BW_GraphicProps *gprops) {
    if (!t) return nullptr;
    LoadKey key{};
    key.file = t->sourceKind == 2 ? g_resourceDir + "/noIcon" : (path ? path : "");
    if (key.file.empty()) return nullptr;
    const int32_t args[4] = {alphaFlag, flip, tile, noAlpha};
    memcpy(key.args, args, sizeof args);
    key.kind = t->sourceKind;
    key.method = t->method;
    key.swap = t->swap;
    key.cropOn = t->cropOn;
    memcpy(key.crop, t->crop, sizeof key.crop);
    key.uScale = t->uScale;
    memcpy(key.tiles, t->tiles, sizeof key.tiles);
    const int mirrorAll = gprops && gprops->glbVar ? gprops->glbVar->mirror : glbVar.mirror;
    for (int k = 0; k < 2; ++k) key.mirror[k] = t->mirror[k] || mirrorAll ? 1 : 0;
    PictureCache *cache = cacheOf(gprops);
    if (cache)
        for (const CacheEntry &e : cache->entries)
            if (e.key == key) return pictureCopy(*e.picture);

    PictureInfo info{};
    if (!picRead(key.file.c_str(), &info)) return nullptr;
    Image img;
    imageFromPicture(info, img);
    picFree(&info);
    imageCrop(img, *t);
    if ((tile && !imageTile(img, *t, key.mirror)) || !imageWiden(img, *t)) {
        fprintf(stderr, "image too big, memory insufficient\n");
        return nullptr;
    }
    const int limit = textureSizeLimit();
    imageResize(img, textureFitSize(img.width, limit), textureFitSize(img.height, limit));
    if (alphaFlag) imageBorder(img);
    TexturePicture *out = pictureFromImage(img, noAlpha, flip);
    if (out && cache) {
        if (TexturePicture *kept = pictureCopy(*out)) {
            cache->entries.push_back(CacheEntry{key, kept});
            gprops->pictureCacheCount = static_cast<int32_t>(cache->entries.size());
        }
    }
    return out;
}

int textureListCompile(int id, const Texture2D *t, const TexturePicture *picture, int repeat,
                       const BW_GlbVar &g) {
    // By texFilter: 0 the texture's own choice, 1 always linear, 2 always nearest.
    static const GLint filters[3] = {0, GL_LINEAR, GL_NEAREST};
    static const GLenum formats[5] = {0, GL_LUMINANCE, GL_LUMINANCE_ALPHA, GL_RGB, GL_RGBA};
    glNewList(static_cast<GLuint>(id + TEXTURE_LIST_BASE), GL_COMPILE);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    GLint filter = g.texFilter > 0 && g.texFilter < 3 ? filters[g.texFilter] : 0;
    if (!filter) filter = t->interpolate ? GL_LINEAR : GL_NEAREST;
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
    const GLint wrap = repeat ? GL_REPEAT : GL_CLAMP;
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, wrap);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, wrap);
    const int components = picture->components;
    int status = 0;
    if (components >= 1 && components <= 4) {
        glTexImage2D(GL_TEXTURE_2D, 0, components, picture->width, picture->height, 0, formats[components],
                     GL_UNSIGNED_BYTE, picture->pixels);
    } else {
        fprintf(stderr, "Unknown number of colour channels: %d\n", components);
        status = TOL_ST_INVALID_GRAPHIC_DATA;
    }
    glEndList();
    return status;
}
