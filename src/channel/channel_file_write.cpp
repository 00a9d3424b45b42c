// Writing a channel setup file, and the setup file of a scene in its database.
#include <cstdio>
#include <cstring>
#include <string>

#include "bw_env.h"
#include "channel.h"
#include "database.h"
#include "dictionary.h"
#include "tol_status.h"

namespace {

const char *onOff(int value) { return value ? "ON" : "OFF"; }

// A title between two bars of '#'.
void title(FILE *f, const char *text) {
    static const char kBar[] = "################################################################";
    fprintf(f, "%s\n# %s\n%s\n", kBar, text, kBar);
}

// The driver directory is written as a word of its own, so that the file
// still finds its drivers where that directory is elsewhere.
bool isDriverDirectory(const std::string &dir) {
    if (dir.empty() || dir == CHANNEL_DEFAULT_DRIVER_DIR) return true;
    const char *build = channelBuildDriverDirectory();
    if (build && dir == build) return true;
    const char *env = envGet(ENV_BW_CHNLDRIVER);
    return env && dir == env;
}

// The direction of a DOF as its letter and a word.
const char *directionLetter(int direction) {
    return direction == CHANNEL_DIR_INPUT ? "I" : direction == CHANNEL_DIR_OUTPUT ? "O" : "N";
}
const char *directionWord(int direction) {
    return direction == CHANNEL_DIR_INPUT ? "IN" : direction == CHANNEL_DIR_OUTPUT ? "OUT" : "NO";
}

void writeDriver(FILE *f, int index, const ChannelDriver &d) {
    fprintf(f, "# DRIVER %d CONFIG INFORMATION\n", index);
    fprintf(f, "DRIVER %s %s %d\n", onOff(d.enabled), d.name.c_str(), d.dofCount);
    fprintf(f, "REMOTE %d %s\t%s\n", d.remote, d.remoteHost.empty() ? "DRIVER_EMPTY_STRING" : d.remoteHost.c_str(),
            isDriverDirectory(d.directory) ? "DEFAULT_DRIVER_LOCATION" : d.directory.c_str());
    switch (d.runMode) {
    case CHANNEL_RUN_FREE: fprintf(f, "RUNMODE FREE\n"); break;
    case CHANNEL_RUN_FREQUENCY:
        if (d.frequency > 0.0f) fprintf(f, "RUNMODE FREQUENCY %.4f\n", static_cast<double>(d.frequency));
        else fprintf(f, "RUNMODE FREQUENCY DEFAULT\n");
        break;
    default: fprintf(f, "RUNMODE SYNCED\n"); break;
    }
}

}  // namespace

int channelFileWrite(const char *path, const ChannelSetup *setup) {
    if (!path || !setup) return 0;
    FILE *f = fopen(path, "w");
    if (!f) {
        msgShowf(TOL_CLASS_ERROR, "Can not open channel setup file '%s' for writing.", path);
        return 0;
    }
    const double version = CHANNEL_FILE_VERSION;
    fprintf(f, "SCHN %.2f\n", version);
    fprintf(f, "%s %6.2f\n", "CHANNELS", version);
    fprintf(f, "Brackwood Studio Environment\n");

    title(f, "CHANNEL SETUP INFORMATION");
    fprintf(f, "FAST_INPUT %s\n", onOff(!setup->fastInput));
    fprintf(f, "CAPTURE %s\n", onOff(setup->capture));
    fprintf(f, "CONTROL %s\n", onOff(setup->control));
    fprintf(f, "TAKE_REC %s %s\n", setup->takeDir, setup->takeName);
    fprintf(f, "FRAMERATE %s\n\n", onOff(setup->frameRate));

    char text[64];
    snprintf(text, sizeof text, "DRIVER SETUP INFORMATION (%d drivers)", setup->driverCount);
    title(f, text);
    int channels = 0;
    for (int i = 0; i < setup->driverCount; ++i) {
        writeDriver(f, i, setup->drivers[i]);
        channels += static_cast<int>(setup->drivers[i].dofs.size());
    }

    snprintf(text, sizeof text, "CHANNELS INFORMATION (%d channels used)", channels);
    title(f, text);
    int number = 0;
    for (const ChannelDriver &d : setup->drivers)
        for (const ChannelDof &dof : d.dofs)
            fprintf(f, "%s %d %g %g %g %g %s %s %s %s\n", "CHANNEL", number++, static_cast<double>(dof.offset),
                    static_cast<double>(dof.scale), static_cast<double>(dof.maximum),
                    static_cast<double>(dof.minimum), onOff(dof.active), directionLetter(dof.direction),
                    directionWord(dof.direction), dof.name.c_str());

    title(f, "CHANNEL CONNECTIONS INFORMATION");
    for (const ChannelConnection *c = setup->connections; c; c = c->next) {
        const char *type = c->itemType >= CHN_TOK_MODEL && c->itemType <= CHN_TOK_TEXTURE_3D
                               ? channelTokenWord(c->itemType) : "NONE";
        fprintf(f, "ITEM %s \"%s\"\n", type, c->expression.c_str());
    }

    title(f, "CHANNEL CALIBRATION INFORMATION");
    fprintf(f, "CALIBRATE\n");
    for (const ChannelConnection *c = setup->connections; c; c = c->next)
        fprintf(f, "   %s %s %g %g %g\n", onOff(c->enabled), onOff(c->calibrated),
                static_cast<double>(c->calibration[0]), static_cast<double>(c->calibration[1]),
                static_cast<double>(c->calibration[2]));

    title(f, "END OF CHANNEL SETUP FILE");
    const bool written = !ferror(f);
    if (fclose(f) != 0 || !written) {
        msgShowf(TOL_CLASS_ERROR, "Can not write channel setup file '%s'.", path);
        return 0;
    }
    return 1;
}

// ---------------------------------------------------------------------------
// The setup file of a scene

namespace {

constexpr const char *kChapter = "SETUP_CHANNELS";

// The file of `name` in the chapter, found as the scene's elements are.
std::string findElementFile(Dictionary *dict, Database *db, ElemName *name) {
    Element probe{};
    probe.name = name;
    return elemFindFile(db, dict, kChapter, CHP_SETUP_CHANNELS, &probe, nullptr, 0) ? g_elemPath : "";
}

}  // namespace

std::string channelSetupFileForScene(Dictionary *dict) {
    if (!dict || !dict->database) return "";
    Database *db = dict->database;
    // The element the scene names: the load keeps the first.
    if (Chapter *chapter = dictChapter(dict, CHP_SETUP_CHANNELS)) {
        for (int i = 0; i < chapter->elementCount; ++i) {
            Element &e = chapter->elements[i];
            if (e.deleted != ELEM_LIVE || !e.name) continue;
            if (elemFindFile(db, dict, kChapter, CHP_SETUP_CHANNELS, &e, nullptr, 0)) return g_elemPath;
            break;
        }
    }
    // Else the newest setup saved under the scene's name.
    const Element *scene = elemGet(dict, CHP_SCENES, 0);
    if (!scene || !scene->name || scene->name->name.empty()) return "";
    ElemName name;
    name.prefix = scene->name->prefix;
    name.name = scene->name->name;
    dbSetChapter(*db, kChapter);
    if (elemLatestVersion(db, &name, 1, nullptr, nullptr) < 0) return "";
    name.fullName = elemNameFormat(name);
    return findElementFile(dict, db, &name);
}

ChannelSetup *channelSetupLoadForScene() {
    TOL_SceneState &state = sceneStateCurrent();
    if (state.channelSetup) return state.channelSetup;
    const std::string path = channelSetupFileForScene(dictCurrent());
    if (!path.empty()) {
        ChannelSetup *setup = channelSetupCreate(4);
        channelFileRead(path.c_str(), setup, 1);
        // A file that gave nothing (unreadable, not a setup file) leaves the default.
        if (setup->driverCount > 0 || setup->connections) {
            state.channelSetup = setup;
            return setup;
        }
        channelSetupFree(setup);
    }
    return channelSetupInit();
}

std::string channelSetupWriteForScene(Database *db, const char *sceneName, const ChannelSetup *setup) {
    if (!db || !sceneName || !*sceneName || !setup) return "";
    ElemName *name = elemNameParse(sceneName, nullptr, 0);
    if (!name) return "";
    name->subdir.clear();
    name->revision = "0";
    name->version = std::to_string(elemNextVersion(db, kChapter, name));
    name->fullName = elemNameFormat(*name);
    dbSetChapter(*db, kChapter);
    const std::string path = db->chapterPath + name->fullName + ".chn";
    elemNameFree(name);
    return channelFileWrite(path.c_str(), setup) ? path : "";
}
