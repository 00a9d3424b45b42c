// Writing a dictionary as a scene file: the elements of every chapter that
// lives on disk, each relation instance from its source side, and the
// environment. What is written reads back into the same elements and
// relations.
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "scene_internal.h"

namespace {

bool writable(const Dictionary *dict, int chapterId) {
    if (chapterId < CHAPTER_COUNT) return g_chapterTable[chapterId].kind != CHAPTER_MEMORY;
    return chapterId < dict->chapterCount;
}

bool hierarchicalChapter(int chapterId) {
    return chapterId == CHP_MODELS || chapterId == CHP_LIGHTS || chapterId == CHP_CAMERAS ||
           chapterId == CHP_EXPRESSIONS;
}

// A curve's own element is made by the load from its file's element: the
// file is written, not the curves, nor their relations. Expressions alike:
// their file is written, and the load connects its members again.
bool live(const Element &e) { return e.deleted == ELEM_LIVE && e.name; }
bool written(int chapterId, const Element &e) {
    return live(e) && !((chapterId == CHP_ANIMATION || chapterId == CHP_EXPRESSIONS) && e.lev > 0);
}

}  // namespace

int sceneWrite(Dictionary *dict, const char *path, float version) {
    if (!dict || !path) return 0;
    FILE *f = fopen(path, "wb");
    if (!f) return 0;

    // Positions in the file are the references of the relations.
    std::vector<std::vector<int32_t>> position(static_cast<size_t>(dict->chapterCount));
    fprintf(f, "SDSC %.6g\n\nELEMENTS\n", static_cast<double>(version));
    for (int c = 0; c < dict->chapterCount; ++c) {
        Chapter *chapter = dictChapter(dict, c);
        position[c].assign(static_cast<size_t>(chapter->elementCount), -1);
        // The scene's own element is the file itself, not one of its elements.
        if (!writable(dict, c) || c == CHP_SCENES) continue;
        int count = 0;
        for (int i = 0; i < chapter->elementCount; ++i)
            if (written(c, chapter->elements[i])) position[c][i] = count++;
        if (count == 0) continue;
        fprintf(f, "  CHAPTER %s NBELEM %d\n", chapter->name.c_str(), count);
        for (int i = 0; i < chapter->elementCount; ++i) {
            const Element &e = chapter->elements[i];
            if (position[c][i] < 0) continue;
            std::string file = e.name->fullName;
            if (c == CHP_PICTURES) file = e.name->subdir + file;
            fprintf(f, "    %s", file.c_str());
            if (!e.name->alias.empty()) fprintf(f, " ALIAS %s", e.name->alias.c_str());
            if (hierarchicalChapter(c) && e.lev == 0) fprintf(f, " ROOT");
            fprintf(f, " ;\n");
        }
        fprintf(f, "  EndOfCHAPTER\n");
    }
    fprintf(f, "EndOfELEMENTS\n\nRELATIONS\n");

    // Statements grouped by their pair of chapters, in the order first met.
    std::map<std::pair<int, int>, std::string> blocks;
    std::vector<std::pair<int, int>> order;
    for (int c = 0; c < dict->chapterCount; ++c) {
        Chapter *chapter = dictChapter(dict, c);
        if (!writable(dict, c) || c == CHP_SCENES) continue;
        for (int i = 0; i < chapter->elementCount; ++i) {
            const Element &e = chapter->elements[i];
            if (!live(e) || position[c][i] < 0) continue;
            for (int g = 0; g < e.childGroupCount; ++g) {
                const RelationGroup &group = e.childGroups[g];
                for (int k = 0; k < group.count; ++k) {
                    const RelationInst &r = group.items[k];
                    if (r.chp >= position.size() || r.elem < 0 ||
                        static_cast<size_t>(r.elem) >= position[r.chp].size() ||
                        position[r.chp][r.elem] < 0)
                        continue;
                    // The elements an expression reads join its run at the load.
                    if (r.relid == REL_EXPRESSION && r.chp != CHP_EXPRESSIONS && c != CHP_EXPRESSIONS &&
                        r.chp != CHP_CHANNEL_DRIVERS && c != CHP_CHANNEL_DRIVERS)
                        continue;
                    // A relation standing in several groups is written once.
                    if (r.relid == REL_EXPRESSION || r.relid == REL_CUSTOM) {
                        bool earlier = false;
                        for (int h = 0; h < g && !earlier; ++h)
                            for (int m = 0; m < e.childGroups[h].count; ++m) {
                                const RelationInst &o = e.childGroups[h].items[m];
                                if (o.relid == r.relid && o.chp == r.chp && o.elem == r.elem &&
                                    o.serialid == r.serialid)
                                    earlier = true;
                            }
                        if (earlier) continue;
                    }
                    auto key = std::make_pair(c, static_cast<int>(r.chp));
                    if (!blocks.count(key)) order.push_back(key);
                    std::string &text = blocks[key];
                    char line[128];
                    snprintf(line, sizeof line, "    %d %d %d", position[c][i], position[r.chp][r.elem],
                             r.relid);
                    text += line;
                    if (r.relid == 551) text += " " + std::to_string(r.serialid);
                    if (!r.activ) text += " NOTACT";
                    if (r.data && relDataFamilyOf(r.relid)) {
                        char *buffer = nullptr;
                        size_t size = 0;
                        FILE *mem = open_memstream(&buffer, &size);
                        relDataWrite(mem, r.relid, static_cast<const RelData *>(r.data));
                        fclose(mem);
                        text += " ";
                        text += buffer ? buffer : "";
                        free(buffer);
                    }
                    text += " ;\n";
                }
            }
        }
    }
    for (const auto &key : order) {
        fprintf(f, "  CHAPTER %s CHAPTER %s\n%s  EndOfCHAPTER\n",
                dictChapter(dict, key.first)->name.c_str(),
                dictChapter(dict, key.second)->name.c_str(), blocks[key].c_str());
    }
    fprintf(f, "EndOfRELATIONS\n\nENVIRONMENT\n");
    for (int c = 0; c < dict->chapterCount; ++c) {
        Chapter *chapter = dictChapter(dict, c);
        if (!writable(dict, c) || c == CHP_SCENES) continue;
        std::string text;
        for (int i = 0; i < chapter->elementCount; ++i) {
            const Element &e = chapter->elements[i];
            if (!live(e) || position[c][i] < 0) continue;
            std::string settings;
            char buf[256];
            if (e.schemX != 0 || e.schemY != 0 || e.schemMark != 0) {
                snprintf(buf, sizeof buf, " SCHEM %.7g %.7g %d", static_cast<double>(e.schemX),
                         static_cast<double>(e.schemY), e.schemMark);
                settings += buf;
            }
            if (e.srt) {
                settings += " SRT";
                for (int k = 0; k < 9; ++k) {
                    snprintf(buf, sizeof buf, " %.7g", static_cast<double>(e.srt[k]));
                    settings += buf;
                }
            }
            if (e.browserBits & 1) settings += " USR";
            static const char *const kEnv[3] = {"WIRECOL", "DISPLAY", "MPRFLG"};
            for (int k = 0; k < 3; ++k)
                if (e.envSet & (1u << k)) {
                    snprintf(buf, sizeof buf, " %s %d", kEnv[k], e.envValues[k]);
                    settings += buf;
                }
            if (settings.empty()) continue;
            text += "    " + std::to_string(position[c][i]) + settings + " ;\n";
        }
        if (!text.empty())
            fprintf(f, "  CHAPTER %s\n%s  EndOfCHAPTER\n", chapter->name.c_str(), text.c_str());
    }
    // The setup file the scene names: element 0 of its chapter is the one a load reads.
    const Chapter *setup = dictChapter(dict, CHP_SETUP_BRAK);
    if (setup && setup->elementCount > 0 && setup->elements[0].deleted == ELEM_LIVE && setup->elements[0].name)
        fprintf(f, "  CHAPTER SETUP_BRAK SETUP %s EndOfCHAPTER\n", setup->elements[0].name->fullName.c_str());
    const TOL_PlayCtrl &play = sceneStateCurrent().playCtrl;
    fprintf(f, "  PLAYCTRL FRAME %d %d %d %d PAUSE %d RATE %.7g EndOfPLAYCTRL\n",
            play.startFrame, play.endFrame, play.currentFrame,
            play.frameStep, play.pause, static_cast<double>(play.framesPerSecond));
    fprintf(f, "EndOfENVIRONMENT\n");
    return fclose(f) == 0 ? 1 : 0;
}
