// Textures on the hardware: each texture element's picture, found in the
// database, prepared and compiled into its display list when its flags ask
// for it: after a state initialisation, and for a picture sequence each time
// the evaluation moves it to another frame.
#include <GL/gl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "animation.h"
#include "dictionary.h"
#include "material.h"
#include "view_internal.h"
#include "bw_env.h"

namespace {

constexpr uint16_t DEFINE_FLAGS = TEXTURE_FLAG_LOAD | TEXTURE_FLAG_COMPILE;

int stopped(const BW_GraphicProps *gprops) { return gprops && gprops->stopFct && gprops->stopFct() ? TOL_ST_STOPPED : 0; }

BW_GlbVar &glbOf(const BW_GraphicProps *gprops) { return gprops && gprops->glbVar ? *gprops->glbVar : glbVar; }

int32_t roundHalfAway(double v) { return static_cast<int32_t>(v < 0.0 ? v - 0.5 : v + 0.5); }

int textureEnvSerial = -1;  // state initialisation after which the texture environment was set
int repeatAll = 0;          // BW_SHADE_TEXTURE_REPEAT: every texture repeats

// Frames of the sequence textures: the evaluation writes them on the update
// side, the draw reads them; the two sides meet only here.
std::mutex sequenceLock;
std::vector<std::pair<const Texture2D *, int32_t>> sequenceFrames;

int32_t sequenceFrameOf(const Texture2D *t) {
    std::lock_guard<std::mutex> hold(sequenceLock);
    for (const auto &[texture, frame] : sequenceFrames)
        if (texture == t) return frame;
    return -1;
}

// The image sequence relation of a texture: the frame of its time.
void evalImageSequence(UpdateRecord *record, float time, int *) {
    if (const Texture2D *t = static_cast<const Texture2D *>(record->data))
        textureSequenceFrameSet(
            t, roundHalfAway(static_cast<double>(time) * sceneStateCurrent().playCtrl.framesPerSecond));
}

// Records find their handler when an update list is built, at the load:
// the handler is in the table before any scene is.
[[maybe_unused]] const int sequenceHandler =
    (updateHandlerRegister(RELGR_PARAM, REL_IMAGE_SEQUENCE, evalImageSequence), 1);

// An element by its name; a texture inline in a model or material by its
// picture's.
const char *textureName(Dictionary *dict, int32_t index) {
    const Chapter *c = dictChapter(dict, CHP_TEXTURES2D);
    if (c && index < c->elementCount) {
        const Element *e = elemGet(dict, CHP_TEXTURES2D, index);
        return e && e->name ? e->name->fullName.c_str() : "";
    }
    const Texture2D *t = grTextureOfId(dict, grSlotId(index));
    return !t ? "" : t->sequenceName.empty() ? t->pictureName.c_str() : t->sequenceName.c_str();
}

// What a texture's list was made from: the fields that change the picture
// or its parameters, and the frame of a sequence.
struct TextureListInputs {
    std::string picture, sequence;  // pictureName, sequenceName
    int32_t frame;                  // frame of the sequence's picture; -1 none
    uint16_t words[9];              // sourceKind, method, swap, cropOn, interpolate, alpha, explicitUV, video, unused
    float crop[4];                  // crop bounds
    float uScale;                   // coverage of a wrap
    uint16_t tiles[2], mirror[2];   // tiling in the image
};

void inputsOf(const Texture2D &t, int32_t frame, TextureListInputs &in) {
    in.picture = t.pictureName;
    in.sequence = t.sequenceName;
    in.frame = frame;
    const uint16_t words[9] = {t.sourceKind, t.method, t.swap, t.cropOn, t.interpolate, t.alpha, t.explicitUV, t.video, 0};
    memcpy(in.words, words, sizeof words);
    memcpy(in.crop, t.crop, sizeof in.crop);
    in.uScale = t.uScale;
    memcpy(in.tiles, t.tiles, sizeof in.tiles);
    memcpy(in.mirror, t.mirror, sizeof in.mirror);
}

bool sameInputs(const TextureListInputs &in, const Texture2D &t, int32_t frame) {
    TextureListInputs now;
    inputsOf(t, frame, now);
    return in.picture == now.picture && in.sequence == now.sequence && in.frame == now.frame &&
           memcmp(in.words, now.words, sizeof in.words) == 0 && memcmp(in.crop, now.crop, sizeof in.crop) == 0 &&
           in.uScale == now.uScale && memcmp(in.tiles, now.tiles, sizeof in.tiles) == 0 &&
           memcmp(in.mirror, now.mirror, sizeof in.mirror) == 0;
}

// What the draw last made of each texture list, by id: one table for the
// one GL context, whichever copy of the scene defined the list.
struct CompiledTexture {
    int32_t serial = -1;               // texture flagging it was made after; -1 never
    const Texture2D *record = nullptr;  // the record defined
    uint32_t revision = 0;             // its revision then
    TextureListInputs inputs{};        // what the list was made from
};
std::vector<CompiledTexture> compiledTextures;

CompiledTexture &compiledOf(int id) {
    if (compiledTextures.size() <= static_cast<size_t>(id)) compiledTextures.resize(static_cast<size_t>(id) + 1);
    return compiledTextures[static_cast<size_t>(id)];
}

// Whether the list of `id` must be made again for the texture as it stands:
// never made since the lists were flagged, or made from other values. A
// record or revision that differs only makes the values be compared.
bool textureListStale(int id, const Texture2D &t, int32_t frame) {
    CompiledTexture &c = compiledOf(id);
    if (c.serial != g_grStateInit.texturesSerial) return true;
    if (c.record == &t && c.revision == t.revision && c.inputs.frame == frame) return false;
    if (!sameInputs(c.inputs, t, frame)) return true;
    c.record = &t;
    c.revision = t.revision;
    return false;
}

void textureListMade(int id, const Texture2D &t, int32_t frame) {
    CompiledTexture &c = compiledOf(id);
    c.serial = g_grStateInit.texturesSerial;
    c.record = &t;
    c.revision = t.revision;
    inputsOf(t, frame, c.inputs);
}

// A texture that shares the list of an earlier one of the same picture is
// defined there: each picture is loaded and compiled once.
bool ownList(Dictionary *dict, const Texture2D *t, int32_t index) { return grTextureId(dict, t) == grSlotId(index); }

}  // namespace

void textureSequenceFrameSet(const Texture2D *texture, int32_t frame) {
    std::lock_guard<std::mutex> hold(sequenceLock);
    for (auto &entry : sequenceFrames)
        if (entry.first == texture) {
            entry.second = frame;
            return;
        }
    sequenceFrames.emplace_back(texture, frame);
}

uint16_t textureFlags(const Dictionary *dict, int32_t index) {
    ViewScene &s = shadeSceneOf(dict);
    return index >= 0 && static_cast<size_t>(index) < s.textures.size() ? s.textures[static_cast<size_t>(index)].flags : 0;
}

int textureDefine(Dictionary *dict, int32_t index, BW_GraphicProps *gprops) {
    if (!gprops || !gprops->texture.active) return 0;
    const Texture2D *t = grTextureOfId(dict, grSlotId(index));
    ViewScene &s = shadeSceneOf(dict);
    if (!t || static_cast<size_t>(index) >= s.textures.size()) return 0;
    ShadeTexture &state = s.textures[static_cast<size_t>(index)];
    BW_GlbVar &g = glbOf(gprops);
    if (textureEnvSerial != g_grStateInit.serial) {
        textureEnvSerial = g_grStateInit.serial;
        glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, g.blending ? GL_DECAL : GL_MODULATE);
        glEnable(GL_TEXTURE_2D);
        repeatAll = envIsSet(ENV_BW_SHADE_TEXTURE_REPEAT);
    }
    if (t->video) state.flags |= TEXTURE_FLAG_VIDEO;
    if (!(state.flags & DEFINE_FLAGS)) return 0;
    if (stopped(gprops)) return TOL_ST_STOPPED;
    // A picture of its own alpha, or textures that modulate, go as RGB.
    const int components = t->alpha || !g.blending ? 3 : 4;
    const int repeat = textureRepeats(t, repeatAll);
    // Whatever happens now, a texture that fails says so once.
    state.flags &= static_cast<uint16_t>(~DEFINE_FLAGS);
    textureListMade(index + 2, *t, state.frame);
    std::string line = std::string("Defining: ") + textureName(dict, index);
    msgStatus(line.c_str());
    if (stopped(gprops)) return TOL_ST_STOPPED;
    std::string path;
    texturePicturePath(dict, t, state.frame, &path);
    // A decal that is clamped ends at its picture: its border lets the surface through.
    TexturePicture *picture =
        textureLoad(t, path.c_str(), components == 4 && !repeat, 0, g.tiling, components == 3, gprops);
    if (!picture) return TOL_ST_INVALID_GRAPHIC_DATA;
    const int status = textureListCompile(index + 2, t, picture, repeat, g);
    texturePictureFree(picture);
    return status;
}

TOL_Status texturesBind(TOL_Scene *scene, BW_GraphicProps *gprops) {
    Dictionary *dict = scene ? dictGet(static_cast<int>(scene->dict)) : nullptr;
    if (!dict || !gprops || !gprops->texture.active) return 0;
    ViewScene &s = shadeSceneOf(dict);
    const int32_t count = static_cast<int32_t>(s.textures.size());
    bool pending = false;
    for (int32_t i = 0; i < count; ++i) {
        const Texture2D *t = grTextureOfId(dict, i + 2);
        if (!t || !ownList(dict, t, i)) continue;
        ShadeTexture &state = s.textures[static_cast<size_t>(i)];
        if (!t->sequenceName.empty()) {
            const int32_t frame = sequenceFrameOf(t);
            if (frame >= 0) state.frame = frame;
        }
        // The list follows the texture's values, whichever copy of the
        // scene made it last.
        if (!(state.flags & DEFINE_FLAGS) && textureListStale(i + 2, *t, state.frame)) state.flags |= DEFINE_FLAGS;
        pending = pending || (state.flags & DEFINE_FLAGS);
    }
    if (!pending) return 0;
    textureCacheBegin(gprops);
    TOL_Status status = 0;
    for (int32_t i = s.textureWalk; i < count && status == 0; ++i) {
        const Texture2D *t = grTextureOfId(dict, i + 2);
        if (!t || !ownList(dict, t, i)) continue;
        const int result = textureDefine(dict, i, gprops);
        if (result == TOL_ST_INVALID_GRAPHIC_DATA) {
            fprintf(stderr, "ERROR: TEXTURE %s INVALID!\n", textureName(dict, i));
        } else if (result != 0) {
            status = result;
            s.textureWalk = i;  // the next run goes on from here
        }
    }
    if (status == 0) s.textureWalk = 0;
    textureCacheEnd(gprops);
    // The models bind what they use.
    textureUnbind(glbOf(gprops));
    return status;
}

TOL_Status texturesDefineSome(TOL_Scene *scene, int count, const int32_t *indices, BW_GraphicProps *gprops) {
    Dictionary *dict = scene ? dictGet(static_cast<int>(scene->dict)) : nullptr;
    if (!dict || !indices) return 0;
    ViewScene &s = shadeSceneOf(dict);
    TOL_Status status = 0;
    textureCacheBegin(gprops);
    for (int i = 0; i < count && status != TOL_ST_STOPPED; ++i) {
        if (indices[i] < 0 || static_cast<size_t>(indices[i]) >= s.textures.size()) continue;
        s.textures[static_cast<size_t>(indices[i])].flags |= DEFINE_FLAGS;
        status = textureDefine(dict, indices[i], gprops);
        if (status == TOL_ST_INVALID_GRAPHIC_DATA) fprintf(stderr, "ERROR: TEXTURE %s INVALID!\n", textureName(dict, indices[i]));
    }
    textureCacheEnd(gprops);
    textureUnbind(glbOf(gprops));
    return status;
}
