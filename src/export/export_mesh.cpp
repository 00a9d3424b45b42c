// The exporter's meshes, materials and textures: the tessellation's vertices
// and triangles by material, each shading model as a metallic-roughness
// material, and each texture's picture as an embedded PNG.
#include <png.h>

#include <cmath>
#include <cstdio>
#include <cstring>

#include "dictionary.h"
#include "export_internal.h"
#include "graphic.h"
#include "material.h"
#include "model.h"

namespace {

constexpr uint16_t SHADING_CONSTANT = 1;  // unlit
constexpr uint16_t SHADING_LAMBERT_END = 3;  // 2 and 3: no highlight
constexpr uint16_t SHADING_SHADOW = 6;    // catches shadows only
constexpr uint16_t MAP_REFLECTION_FIRST = 7;  // 7 and 8: reflection maps, no UV
constexpr uint16_t VERTEX_COLOUR_UNUSED = 1;  // the material's vertexColourMode that ignores them
constexpr uint16_t VERTEX_COLOUR_ADD = 3;     // added to the diffuse colour
constexpr float COLOUR_SCALE = 1.0f / 255.0f;
// The draw's texture choices as the viewer starts: local and material
// textures count, a material's own wins.
const BW_GlbVar drawPolicy{};

// libpng's writer into a byte vector.
void pngWrite(png_structp png, png_bytep data, png_size_t length) {
    auto *out = static_cast<std::vector<unsigned char> *>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}
void pngFlush(png_structp) {}

// The picture as PNG, top row first (the picture holds its bottom row
// first); `alpha` keeps its alpha plane. Empty on failure.
std::vector<unsigned char> pngEncode(const PictureInfo &pic, bool alpha) {
    std::vector<unsigned char> out;
    const int channels = alpha ? 4 : 3;
    std::vector<unsigned char> rows(static_cast<size_t>(pic.width) * pic.height * channels);
    for (int y = 0; y < pic.height; ++y) {
        const size_t from = static_cast<size_t>(pic.height - 1 - y) * pic.width;
        unsigned char *row = &rows[static_cast<size_t>(y) * pic.width * channels];
        for (int x = 0; x < pic.width; ++x)
            for (int c = 0; c < channels; ++c)
                row[x * channels + c] = pic.planes[c] ? pic.planes[c][from + x] : (c == 3 ? 255 : 0);
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        return out;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        out.clear();
        return out;
    }
    png_set_write_fn(png, &out, pngWrite, pngFlush);
    // Speed over size: pictures are small beside the geometry.
    png_set_compression_level(png, 1);
    png_set_IHDR(png, info, pic.width, pic.height, 8, alpha ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < pic.height; ++y)
        png_write_row(png, &rows[static_cast<size_t>(y) * pic.width * channels]);
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return out;
}

// The glTF image of a picture file, -1 when it cannot be read.
int imageOf(ExportWork &w, const std::string &path, bool alpha) {
    const std::string key = path + (alpha ? "#alpha" : "");
    auto found = w.images.find(key);
    if (found != w.images.end()) return found->second;
    int index = -1;
    PictureInfo pic{};
    if (picRead(path.c_str(), &pic) && pic.width > 0 && pic.height > 0) {
        const std::vector<unsigned char> png = pngEncode(pic, alpha && pic.planes[3]);
        if (!png.empty()) {
            tinygltf::Image image;
            const size_t slash = path.find_last_of('/');
            image.name = slash == std::string::npos ? path : path.substr(slash + 1);
            image.mimeType = "image/png";
            image.bufferView = exportView(w, png.data(), png.size(), 0);
            index = static_cast<int>(w.gltf.images.size());
            w.gltf.images.push_back(std::move(image));
        }
    }
    picFree(&pic);
    w.images[key] = index;
    return index;
}

// The glTF texture of a texture record: its picture with its wrap and filter.
int textureOf(ExportWork &w, const Texture2D *t) {
    auto found = w.textures.find(t);
    if (found != w.textures.end()) return found->second;
    int index = -1;
    if (t->method >= MAP_REFLECTION_FIRST) {
        exportDrop(w, DROP_REFLECTION);
    } else {
        if (!t->sequenceName.empty() || t->video) exportDrop(w, DROP_SEQUENCE);
        if (t->cropOn || t->tiles[0] > 1 || t->tiles[1] > 1 || t->mirror[0] || t->mirror[1]) exportDrop(w, DROP_CROP);
        if (!t->shader.name.empty()) exportDrop(w, DROP_SHADERS);
        std::string path;
        const int image = texturePicturePath(w.dict, t, -1, &path) ? imageOf(w, path, t->alpha) : -1;
        if (image < 0) {
            exportDrop(w, DROP_PICTURE);
        } else {
            tinygltf::Sampler sampler;
            const int wrap = textureRepeats(t, w.options.repeatAll) ? TINYGLTF_TEXTURE_WRAP_REPEAT
                                                                     : TINYGLTF_TEXTURE_WRAP_CLAMP_TO_EDGE;
            sampler.wrapS = sampler.wrapT = wrap;
            const int filter = t->interpolate ? TINYGLTF_TEXTURE_FILTER_LINEAR : TINYGLTF_TEXTURE_FILTER_NEAREST;
            sampler.magFilter = sampler.minFilter = filter;
            tinygltf::Texture texture;
            texture.sampler = static_cast<int>(w.gltf.samplers.size());
            texture.source = image;
            texture.name = t->pictureName;
            w.gltf.samplers.push_back(sampler);
            index = static_cast<int>(w.gltf.textures.size());
            w.gltf.textures.push_back(texture);
        }
    }
    w.textures[t] = index;
    return index;
}

// The glTF material of a material record (null: the default material), with
// `texture` (may be -1) as its base colour texture.
int materialOf(ExportWork &w, const Material *record, int texture) {
    auto found = w.materials.find(record);
    if (found != w.materials.end() && texture < 0) return found->second;
    const Material &m = record ? *record : materialDefault();
    tinygltf::Material out;
    out.name = m.name;
    const double alpha = 1.0 - std::min(1.0, std::max(0.0, static_cast<double>(m.transparency)));
    out.pbrMetallicRoughness.baseColorFactor = {m.diffuse[0], m.diffuse[1], m.diffuse[2], alpha};
    out.pbrMetallicRoughness.metallicFactor = 0.0;
    if (m.shadingModel == SHADING_CONSTANT) {
        out.extensions["KHR_materials_unlit"] = tinygltf::Value(tinygltf::Value::Object());
    } else if (m.shadingModel <= SHADING_LAMBERT_END) {
        out.pbrMetallicRoughness.roughnessFactor = 1.0;
    } else {
        // A highlight of exponent n is about as wide as a microfacet
        // lobe of roughness (2 / (n + 2)) to the quarter power.
        const double n = std::max(0.0f, m.specularDecay);
        out.pbrMetallicRoughness.roughnessFactor = std::pow(2.0 / (n + 2.0), 0.25);
    }
    if (alpha < 1.0) out.alphaMode = "BLEND";
    if (texture >= 0) out.pbrMetallicRoughness.baseColorTexture.index = texture;
    if (m.hasTexture3D) exportDrop(w, DROP_TEXTURE3D);
    if (!m.shaders[0].name.empty() || !m.shaders[1].name.empty() || !m.shaders[2].name.empty() ||
        !m.sizedShader.name.empty())
        exportDrop(w, DROP_SHADERS);
    const int index = static_cast<int>(w.gltf.materials.size());
    w.gltf.materials.push_back(std::move(out));
    if (texture < 0) w.materials[record] = index;
    return index;
}

}  // namespace

void exportPoints(const Model *model, const float *extraScale, float *pos, float *normal) {
    const TessVertex *vs = model->vertices;
    for (int32_t i = 0; i < model->vertexCount; ++i) {
        double len = 0.0;
        for (int k = 0; k < 3; ++k) {
            const float s = extraScale ? extraScale[k] : 1.0f;
            pos[3 * i + k] = vs[i].pos[k] * s;
            const double c = vs[i].normal[k] / static_cast<double>(s);
            normal[3 * i + k] = static_cast<float>(c);
            len += c * c;
        }
        len = std::sqrt(len);
        for (int k = 0; k < 3 && extraScale && len > 0.0; ++k)
            normal[3 * i + k] = static_cast<float>(normal[3 * i + k] / len);
    }
}

void exportBounds(const float *values, size_t count, std::vector<double> *lo, std::vector<double> *hi) {
    lo->assign(3, count ? 1e300 : 0.0);
    hi->assign(3, count ? -1e300 : 0.0);
    for (size_t i = 0; i < count; ++i)
        for (size_t k = 0; k < 3; ++k) {
            (*lo)[k] = std::min((*lo)[k], static_cast<double>(values[3 * i + k]));
            (*hi)[k] = std::max((*hi)[k], static_cast<double>(values[3 * i + k]));
        }
}

int exportMesh(ExportWork &w, Model *model, const float *extraScale, const ExportBase *base, int64_t *vertexTotal,
               int64_t *triangleTotal) {
    if (!model->vertices || !model->triangles || model->triangleCount <= 0) return -1;
    const bool perCorner = base && base->perCorner;
    const int32_t n = perCorner ? model->triangleCount * 3 : model->vertexCount;
    // The tessellation's vertex behind each vertex written.
    std::vector<const TessVertex *> vs(static_cast<size_t>(n));
    for (int32_t i = 0; i < n; ++i)
        vs[static_cast<size_t>(i)] = perCorner ? model->triangles[i / 3].v[i % 3] : &model->vertices[i];
    // Positions and normals, shared by the primitives of every material.
    std::vector<float> pos(static_cast<size_t>(n) * 3), normal(static_cast<size_t>(n) * 3);
    if (base) {
        std::copy(base->pos, base->pos + pos.size(), pos.begin());
        std::copy(base->normal, base->normal + normal.size(), normal.begin());
    } else {
        exportPoints(model, extraScale, pos.data(), normal.data());
    }
    std::vector<double> lo, hi;
    exportBounds(pos.data(), static_cast<size_t>(n), &lo, &hi);
    const int posAccessor = exportAccessor(w, pos.data(), static_cast<size_t>(n), TINYGLTF_TYPE_VEC3,
                                           TINYGLTF_COMPONENT_TYPE_FLOAT, TINYGLTF_TARGET_ARRAY_BUFFER, lo, hi);
    const int normalAccessor = exportAccessor(w, normal.data(), static_cast<size_t>(n), TINYGLTF_TYPE_VEC3,
                                              TINYGLTF_COMPONENT_TYPE_FLOAT, TINYGLTF_TARGET_ARRAY_BUFFER);

    // Triangles by material, in the order the materials first appear.
    std::vector<const Material *> order;
    std::map<const Material *, std::vector<uint32_t>> indices;
    for (int32_t t = 0; t < model->triangleCount; ++t) {
        const TessTriangle &tri = model->triangles[t];
        auto &list = indices[tri.material];
        if (list.empty()) order.push_back(tri.material);
        for (int k = 0; k < 3; ++k)
            list.push_back(perCorner ? static_cast<uint32_t>(3 * t + k) : static_cast<uint32_t>(tri.v[k] - model->vertices));
    }
    tinygltf::Mesh mesh;
    mesh.name = model->name ? model->name : "";
    const Texture2D *local = modelLocalTexture(model, drawPolicy);
    for (const Material *record : order) {
        const Material &mat = record ? *record : materialDefault();
        if (mat.shadingModel == SHADING_SHADOW) {
            exportDrop(w, DROP_SHADOW);
            continue;
        }
        const std::vector<uint32_t> &list = indices[record];
        tinygltf::Primitive prim;
        prim.mode = TINYGLTF_MODE_TRIANGLES;
        prim.attributes["POSITION"] = posAccessor;
        prim.attributes["NORMAL"] = normalAccessor;
        prim.indices = exportAccessor(w, list.data(), list.size(), TINYGLTF_TYPE_SCALAR,
                                      TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT, TINYGLTF_TARGET_ELEMENT_ARRAY_BUFFER);
        // The texture the draw would bind for these triangles, with the UV
        // the strips would carry; glTF counts v from the top of the picture.
        const Texture2D *texture = textureResolve(model, record, local, drawPolicy);
        const int gltfTexture = texture ? textureOf(w, texture) : -1;
        if (gltfTexture >= 0) {
            std::vector<float> uv(static_cast<size_t>(n) * 2);
            for (int32_t i = 0; i < n; ++i) {
                float p[2];
                stripVertexUv(texture, vs[static_cast<size_t>(i)], p, nullptr);
                uv[2 * i] = p[0];
                uv[2 * i + 1] = 1.0f - p[1];
            }
            prim.attributes["TEXCOORD_0"] = exportAccessor(w, uv.data(), static_cast<size_t>(n), TINYGLTF_TYPE_VEC2,
                                                           TINYGLTF_COMPONENT_TYPE_FLOAT, TINYGLTF_TARGET_ARRAY_BUFFER);
        }
        // Vertex colours as the strips carry them.
        if (mat.vertexColourMode != VERTEX_COLOUR_UNUSED) {
            std::vector<float> colour(static_cast<size_t>(n) * 3);
            for (int32_t i = 0; i < n; ++i)
                for (int k = 0; k < 3; ++k) {
                    float c = static_cast<float>((vs[static_cast<size_t>(i)]->colour >> (8 * k)) & 0xFF) * COLOUR_SCALE;
                    if (mat.vertexColourMode == VERTEX_COLOUR_ADD) c += mat.diffuse[k];
                    colour[3 * i + k] = std::min(1.0f, c);
                }
            prim.attributes["COLOR_0"] = exportAccessor(w, colour.data(), static_cast<size_t>(n), TINYGLTF_TYPE_VEC3,
                                                        TINYGLTF_COMPONENT_TYPE_FLOAT, TINYGLTF_TARGET_ARRAY_BUFFER);
        }
        prim.material = materialOf(w, record, gltfTexture);
        mesh.primitives.push_back(std::move(prim));
        *triangleTotal += static_cast<int64_t>(list.size() / 3);
    }
    if (mesh.primitives.empty()) return -1;
    *vertexTotal += n;
    const int index = static_cast<int>(w.gltf.meshes.size());
    w.gltf.meshes.push_back(std::move(mesh));
    return index;
}
