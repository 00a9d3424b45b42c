// Channel setup files: the token table, the reader on files written here line
// by line, the writer's exact bytes, and the setup file of a scene.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <tuple>

#include "capture.h"
#include "channel.h"
#include "database.h"
#include "dictionary.h"

namespace {

using bwtest::StreamCapture;
using bwtest::TempDir;

// Reads `text` as a setup file into a fresh setup; messages go to `err`.
struct Read {
    ChannelSetup *setup = channelSetupCreate(4);
    std::string err;
    std::string path;
    int result = 0;
    Read(const TempDir &dir, const std::string &text, int loading = 0) {
        path = dir.write("setup.chn", text);
        StreamCapture capture(stderr);
        result = channelFileRead(path.c_str(), setup, loading);
        err = capture.text();
    }
    ~Read() { channelSetupFree(setup); }
};

std::string writeDriver(const TempDir &dir, const std::string &name, const std::string &drv) {
    const std::string exe = dir.write(name, "#!/bin/sh\n");
    chmod(exe.c_str(), 0755);
    dir.write(name + ".drv", drv);
    return exe;
}

const char *kWaveDrv = "CHANNEL_DRIVER 1.0\nDOF_NUM 2\nDOF_NAME 0 sine\nDOF_NAME 1 gain\n"
                       "DOF_TYPE 0 I ON\nDOF_TYPE 1 O ON\n_END\n";

}  // namespace

TEST(ChannelTokens, TableIdsAndUnknownWords) {
    // "channels": the case is exact.
    for (auto [word, id] : {std::pair{"CHANNELS", 2}, {"#", 1}, {"Brackwood", 21}, {"RUNMODE", 35}, {"FREERUN", 35},
                            {"SYNCED", 36}, {"_END", 43}, {"channels", 0}, {"##", 0}})
        EXPECT_EQ(channelTokenId(word), id) << word;
    EXPECT_STREQ(channelTokenWord(35), "RUNMODE");
    EXPECT_EQ(channelTokenWord(44), nullptr);
}

TEST(ChannelFileRead, OpenIdAndVersionFailures) {
    TempDir dir;
    ChannelSetup *s = channelSetupCreate(4);
    {
        StreamCapture err(stderr);
        const std::string missing = dir / "none.chn";
        EXPECT_EQ(channelFileRead(missing.c_str(), s, 0), 0);
        EXPECT_EQ(err.text(), "Can not open channel setup file '" + missing + "' for reading.\n");
    }
    channelSetupFree(s);
    Read id(dir, "CHANNEL 3.51\n");
    EXPECT_EQ(id.result, 0);
    EXPECT_EQ(id.err, "File '" + id.path + "' has an invalid id for a channel setup file.\n");
    Read empty(dir, "");
    EXPECT_EQ(empty.err, "File '" + empty.path + "' has an invalid id for a channel setup file.\n");
    Read version(dir, "# a comment line first\nCHANNELS three\n");
    EXPECT_EQ(version.result, 0);
    EXPECT_EQ(version.err, "Channel setup file '" + version.path + "' has a bad version number.\n");
    Read header(dir, "SCHN 3.51\nCHANNELS 3.51\nFRAMERATE ON\n");
    EXPECT_EQ(header.result, 1);
    EXPECT_EQ(header.err, "");
    EXPECT_EQ(header.setup->frameRate, 1);
}

TEST(ChannelFileRead, EveryTokenOfAVersion351File) {
    TempDir dir;
    Read r(dir,
           "CHANNELS 3.51\n"
           "Brackwood Studio Environment CHANNEL 0 5 5 5 5 ON\n"
           "####### # bars and comments pass, as do words that are no token\n"
           "FAST_INPUT ON CAPTURE OFF CONTROL ON FRAMERATE ON TIMESTAMP OFF\n"
           "DRIVER_SYNC OFF DRIVER_DEBUG ON\n"
           "BOGUS words\n"
           "DOF_NUM 9 CAPTURE OFF\n"  // a token of another file skips its line
           "DRIVER ON wave 2\nREMOTE 1 studio\t/opt/drivers\nRUNMODE FREQUENCY 60.0000\n"
           "DRIVER OFF mouse 3 REMOTE 0 DRIVER_EMPTY_STRING DEFAULT_DRIVER_LOCATION FREERUN FREE\n"
           "CHANNEL 0 0.5 2 1 -1 ON I IN sine wave\n"
           "CHANNEL 1 0 1 -5 3 OFF O OUT\n"   // maximum below the minimum
           "CHANNEL 4 0 1 9 -9 ON X NO\n"     // neither direction
           "CHANNEL 5 7 7 7 7 ON I IN beyond\n"  // beyond the last DOF: skipped
           "ITEM MODEL \"cube.ty = 2 * CHN wave.sine + 0.5\"\n"
           "ITEM CAMERA \"CHN wave.gain = 1 * cam.fov + 0\"\n"
           "CALIBRATE\n   OFF ON 1 2 3\n   ON OFF 4 5 6 trailing words\n");
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.err, "");
    const ChannelSetup &s = *r.setup;
    EXPECT_EQ(std::tie(s.fastInput, s.capture, s.control, s.frameRate, s.timeStamp, s.sync), std::tuple(0, 0, 1, 1, 0, 1));
    EXPECT_EQ(s.debug, 1u);
    ASSERT_EQ(s.driverCount, 2);
    const ChannelDriver &wave = s.drivers[0], &mouse = s.drivers[1];
    EXPECT_EQ(std::tie(wave.name, wave.enabled, wave.remote, wave.remoteHost, wave.directory, wave.runMode, wave.frequency),
              std::tuple("wave", 1, 1, "studio", "/opt/drivers", CHANNEL_RUN_FREQUENCY, 60.0f));
    ASSERT_EQ(wave.dofCount, 2);
    // Maximum below the minimum: both take the maximum.
    for (auto [dof, offset, scale, maximum, minimum, active, direction, name] :
         {std::tuple{0, 0.5f, 2.0f, 1.0f, -1.0f, 1, CHANNEL_DIR_INPUT, "sine wave"},
          {1, 0.0f, 1.0f, 3.0f, 3.0f, 0, CHANNEL_DIR_OUTPUT, ""}}) {
        const ChannelDof &d = wave.dofs[size_t(dof)];
        EXPECT_EQ(std::tie(d.offset, d.scale, d.maximum, d.minimum, d.active, d.direction, d.name),
                  std::tuple(offset, scale, maximum, minimum, active, direction, name)) << dof;
    }
    EXPECT_EQ(std::tie(mouse.enabled, mouse.remoteHost, mouse.directory, mouse.runMode),
              std::tuple(0, "", "", CHANNEL_RUN_FREE));
    EXPECT_EQ(std::tie(mouse.dofs[2].direction, mouse.dofs[2].maximum, mouse.dofs[1].maximum),
              std::tuple(CHANNEL_DIR_NONE, 9.0f, CHANNEL_DOF_MAXIMUM));
    const ChannelConnection *c = s.connections;
    ASSERT_TRUE(c && c->next);
    EXPECT_EQ(std::tie(c->kind, c->itemType, c->expression, c->enabled, c->calibrated, c->calibration[2]),
              std::tuple(CHANNEL_CONN_INPUT, CHN_TOK_MODEL, "cube.ty = 2 * CHN wave.sine + 0.5", 0, 1, 3.0f));
    EXPECT_EQ(std::tie(c->next->kind, c->next->itemType, c->next->enabled, c->next->calibration[0]),
              std::tuple(CHANNEL_CONN_OUTPUT, CHN_TOK_CAMERA, 1, 4.0f));
    // Only the word "#" is a comment: a bar, or a word glued to a "#", is a
    // word that is no token, and the words after it on its line are read.
    Read bar(dir, "CHANNELS 3.51\n######## FRAMERATE ON\n#TIMESTAMP OFF\n");
    EXPECT_EQ(bar.result, 1);
    EXPECT_EQ(bar.setup->frameRate, 1);
    EXPECT_EQ(bar.setup->timeStamp, 1);
}

TEST(ChannelFileRead, CaptureComesOnWhenNeitherWordIsSet) {
    TempDir dir;
    Read off(dir, "CHANNELS 3.51\nCAPTURE OFF\nCONTROL OFF\n");
    EXPECT_EQ(off.setup->capture, 1);
    EXPECT_EQ(off.setup->control, 0);
    ChannelSetup *s = channelSetupCreate(4);
    s->capture = 0;
    s->control = 0;
    const std::string path = dir.write("bare.chn", "CHANNELS 3.51\nFRAMERATE OFF\n");
    EXPECT_EQ(channelFileRead(path.c_str(), s, 0), 1);
    EXPECT_EQ(s->capture, 1);
    channelSetupFree(s);
}

TEST(ChannelFileRead, TakeRecFromVersion351WithTheNextNumber) {
    TempDir dir;
    dir.mkdir("takes/shot.CHD/TAKE.0001");
    dir.mkdir("takes/shot.CHD/TAKE.0004");
    const std::string takes = dir / "takes";
    Read old(dir, "CHANNELS 3.5\nTAKE_REC " + takes + " shot\nFRAMERATE ON\n");
    EXPECT_STREQ(old.setup->takeDir, "\\temp");
    EXPECT_STREQ(old.setup->takeName, "default");
    EXPECT_EQ(old.setup->frameRate, 1);  // the skipped line ends where it should
    Read now(dir, "CHANNELS 3.51\nTAKE_REC " + takes + " shot\n");
    EXPECT_EQ(now.setup->takeDir, takes);
    EXPECT_STREQ(now.setup->takeName, "shot");
    EXPECT_EQ(now.setup->takeNumber, 5);
    Read fresh(dir, "CHANNELS 3.51\nTAKE_REC " + takes + " other\n");
    EXPECT_EQ(fresh.setup->takeNumber, 1);  // no take set yet
}

TEST(ChannelFileRead, DriverShapeErrorsStopTheRead) {
    TempDir dir;
    const std::string bad = "Bad format for DRIVER token in channel setup file.\n";
    Read count(dir, "CHANNELS 3.51\nDRIVER ON wave many\nFRAMERATE ON\n");
    EXPECT_EQ(count.result, 0);
    EXPECT_EQ(count.err, bad);
    EXPECT_EQ(count.setup->driverCount, 0);
    EXPECT_EQ(count.setup->frameRate, 0);
    Read remote(dir, "CHANNELS 3.51\nDRIVER ON wave 2 RUNMODE FREE\n");
    EXPECT_EQ(remote.err, "File '" + remote.path + "' has an invalid remote entry in file\n" + bad);
    Read freerun(dir, "CHANNELS 3.51\nDRIVER ON wave 2 REMOTE 0 DRIVER_EMPTY_STRING DEFAULT_DRIVER_LOCATION "
                      "RUNMODE FAST\n");
    EXPECT_EQ(freerun.err, "File '" + freerun.path + "' has an invalid freerun entry in file\n" + bad);
    Read v3(dir, "CHANNELS 3.0\nDRIVER ON wave 2\nCHANNEL 1 0 1 1 0 ON\n");
    EXPECT_EQ(v3.result, 1);  // version 3.0 has no REMOTE nor RUNMODE; the direction may be left out
    ASSERT_EQ(v3.setup->driverCount, 1);
    EXPECT_EQ(v3.setup->drivers[0].dofs[1].direction, CHANNEL_DIR_NONE);
}

TEST(ChannelFileRead, OlderFormsOfDriverAndItem) {
    TempDir dir;
    Read r(dir, "CHANNELS 2.5\nDRIVER ON wave\nITEM 2 0.5 IN MODEL cube ty wave.sine\n"
                "ITEM 1 0 OUT CAMERA cam fov wave.gain\nITEM 1 0 SIDEWAYS MODEL a b c.d\n");
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.err, "Bad connection in channel setup file '" + r.path + "'.\n");
    ASSERT_EQ(r.setup->driverCount, 1);
    EXPECT_EQ(r.setup->drivers[0].dofCount, 0);
    ASSERT_NE(r.setup->connections, nullptr);
    EXPECT_EQ(r.setup->connections->expression, "cube.ty = 2 * CHN wave.sine + 0.5");
    EXPECT_EQ(r.setup->connections->itemType, CHN_TOK_MODEL);
    ASSERT_NE(r.setup->connections->next, nullptr);
    EXPECT_EQ(r.setup->connections->next->expression, "CHN wave.gain = 1 * cam.fov + 0");
    EXPECT_EQ(r.setup->connections->next->next, nullptr);
    Read quoted(dir, "CHANNELS 3.51\nITEM MODEL \"not an expression\"\nITEM MODEL unquoted\n");
    EXPECT_EQ(quoted.err, "Bad connection in channel setup file '" + quoted.path + "'.\n"
                          "Bad connection in channel setup file '" + quoted.path + "'.\n");
    EXPECT_EQ(quoted.setup->connections, nullptr);
}

TEST(ChannelFileRead, LoadingChecksEachDriverAgainstItsConfiguration) {
    TempDir dir, drivers;
    writeDriver(drivers, "wave", kWaveDrv);
    bwtest::ScopedEnv env("BW_CHNLDRIVER", drivers.path().c_str());
    const std::string remote = " REMOTE 0 DRIVER_EMPTY_STRING DEFAULT_DRIVER_LOCATION RUNMODE SYNCED\n";
    Read good(dir, "CHANNELS 3.51\nDRIVER ON wave 2" + remote + "CHANNEL 0 1 3 9 -9 ON I IN\n", 1);
    EXPECT_EQ(good.result, 1);
    EXPECT_EQ(good.err, "");
    ASSERT_EQ(good.setup->driverCount, 1);
    const ChannelDriver &w = good.setup->drivers[0];
    EXPECT_EQ(w.configRead, 1);
    EXPECT_EQ(w.dofs[0].name, "sine");  // the configuration's, the file giving none
    EXPECT_EQ(w.dofs[0].scale, 3.0f);   // the file's
    EXPECT_EQ(w.dofs[1].direction, CHANNEL_DIR_OUTPUT);
    EXPECT_EQ(w.directory, "");

    Read count(dir, "CHANNELS 3.51\nDRIVER ON wave 3" + remote + "DRIVER ON ghost 1" + remote +
                        "CHANNEL 2 1 4 9 -9 ON I IN\nCHANNEL 3 1 5 9 -9 ON I IN\n", 1);
    EXPECT_EQ(count.result, 0);
    EXPECT_EQ(count.err, "Driver 'wave' expects 2 channels (3 in the scene)\n"
                         "Channel driver:\n" + drivers.path() + "/ghost\ndoes not exist\n");
    ASSERT_EQ(count.setup->driverCount, 2);
    EXPECT_EQ(count.setup->drivers[0].configRead, 0);  // stays out of runs
    EXPECT_EQ(count.setup->drivers[0].dofs[2].scale, 4.0f);  // the scene's DOFs keep their places
    EXPECT_EQ(count.setup->drivers[1].enabled, 0);
    EXPECT_EQ(count.setup->drivers[1].dofs[0].scale, 5.0f);
}

TEST(ChannelFileRead, AMissingDriverIsReplacedByACompatibleOne) {
    TempDir dir, drivers;
    writeDriver(drivers, "wave", kWaveDrv);
    bwtest::ScopedEnv env("BW_CHNLDRIVER", drivers.path().c_str());
    const std::string gone = dir / "gone";
    Read moved(dir, "CHANNELS 3.51\nDRIVER ON wave 2 REMOTE 0 DRIVER_EMPTY_STRING " + gone +
                        " RUNMODE SYNCED\nDRIVER ON wave.exe 2 REMOTE 0 DRIVER_EMPTY_STRING "
                        "DEFAULT_DRIVER_LOCATION RUNMODE SYNCED\nDRIVER ON wave 5 REMOTE 0 "
                        "DRIVER_EMPTY_STRING " + gone + " RUNMODE SYNCED\n",
               1);
    EXPECT_EQ(moved.err, "Channel driver '" + gone + "/wave' replaced by '" + drivers.path() + "/wave'.\n"
                         "Channel driver '" + drivers.path() + "/wave.exe' replaced by '" + drivers.path() +
                         "/wave'.\n"
                         "Channel driver:\n" + gone + "/wave\ndoes not exist\n");
    ASSERT_EQ(moved.setup->driverCount, 3);
    EXPECT_EQ(moved.setup->drivers[0].directory, "");
    EXPECT_EQ(moved.setup->drivers[0].configRead, 1);
    EXPECT_EQ(moved.setup->drivers[2].enabled, 0);  // five DOFs: not compatible
}

// ---------------------------------------------------------------------------
// Writing

namespace {

ChannelSetup *smallSetup() {
    ChannelSetup *s = channelSetupCreate(4);
    s->capture = 1;
    s->control = 0;
    s->frameRate = 1;
    snprintf(s->takeDir, sizeof s->takeDir, "/takes");
    snprintf(s->takeName, sizeof s->takeName, "shot");
    ChannelDriver wave;
    wave.name = "wave";
    wave.runMode = CHANNEL_RUN_FREQUENCY;
    wave.frequency = 60.0f;
    wave.dofCount = 2;
    wave.dofs.resize(2);
    wave.dofs[0] = ChannelDof{"sine", CHANNEL_DIR_INPUT, 1, 0.5f, 2.0f, nullptr, 1.0f, -1.0f};
    wave.dofs[1].direction = CHANNEL_DIR_OUTPUT;
    channelSetupAddDriver(s, wave);
    ChannelConnection *c = channelSetupAddConnection(s, CHANNEL_CONN_INPUT, "cube.ty = 2 * CHN wave.sine + 0.5");
    c->itemType = CHN_TOK_MODEL;
    return s;
}

const char *kBar = "################################################################\n";

}  // namespace

TEST(ChannelFileWrite, ExactBytesOfASmallSetup) {
    TempDir dir;
    ChannelSetup *s = smallSetup();
    const std::string path = dir / "small.chn";
    ASSERT_EQ(channelFileWrite(path.c_str(), s), 1);
    const std::string bar = kBar;
    EXPECT_EQ(bwtest::fileText(path),
              "SCHN 3.51\nCHANNELS   3.51\nBrackwood Studio Environment\n" + bar +
                  "# CHANNEL SETUP INFORMATION\n" + bar +
                  "FAST_INPUT OFF\nCAPTURE ON\nCONTROL OFF\nTAKE_REC /takes shot\nFRAMERATE ON\n\n" + bar +
                  "# DRIVER SETUP INFORMATION (1 drivers)\n" + bar +
                  "# DRIVER 0 CONFIG INFORMATION\nDRIVER ON wave 2\n"
                  "REMOTE 0 DRIVER_EMPTY_STRING\tDEFAULT_DRIVER_LOCATION\nRUNMODE FREQUENCY 60.0000\n" + bar +
                  "# CHANNELS INFORMATION (2 channels used)\n" + bar +
                  "CHANNEL 0 0.5 2 1 -1 ON I IN sine\nCHANNEL 1 0 1 9999 -9999 OFF O OUT \n" + bar +
                  "# CHANNEL CONNECTIONS INFORMATION\n" + bar +
                  "ITEM MODEL \"cube.ty = 2 * CHN wave.sine + 0.5\"\n" + bar +
                  "# CHANNEL CALIBRATION INFORMATION\n" + bar + "CALIBRATE\n   ON OFF 0 0 0\n" + bar +
                  "# END OF CHANNEL SETUP FILE\n" + bar);
    channelSetupFree(s);
    StreamCapture err(stderr);
    EXPECT_EQ(channelFileWrite((dir / "no/such/dir.chn").c_str(), s = smallSetup()), 0);
    EXPECT_EQ(err.text(), "Can not open channel setup file '" + (dir / "no/such/dir.chn") + "' for writing.\n");
    channelSetupFree(s);
}

TEST(ChannelFileWrite, WrittenAndReadBackGivesTheSameSetup) {
    TempDir dir;
    ChannelSetup *s = smallSetup();
    s->fastInput = 0;
    s->capture = 0;
    s->control = 1;
    ChannelDriver far;
    far.name = "tracker";
    far.enabled = 0;
    far.remote = CHANNEL_DRIVER_REMOTE;
    far.remoteHost = "studio";
    far.directory = "/opt/drivers";
    far.runMode = CHANNEL_RUN_FREE;
    far.dofCount = 1;
    far.dofs.assign(1, ChannelDof{"roll", CHANNEL_DIR_INPUT, 1, -0.25f, 4.0f, nullptr, 90.0f, -90.0f});
    channelSetupAddDriver(s, far);
    ChannelConnection *out = channelSetupAddConnection(s, CHANNEL_CONN_OUTPUT, "CHN wave.gain = 0.5 * cube.tx + 1");
    out->enabled = 0;
    out->calibrated = 1;
    out->calibration[0] = 0.125f;
    out->calibration[1] = -3.0f;
    out->calibration[2] = 1e6f;
    const std::string path = dir / "round.chn";
    ASSERT_EQ(channelFileWrite(path.c_str(), s), 1);
    ChannelSetup *back = channelSetupCreate(4);
    ASSERT_EQ(channelFileRead(path.c_str(), back, 0), 1);
    auto setupOf = [](const ChannelSetup *x) {
        return std::tuple(x->fastInput, x->capture, x->control, x->frameRate, std::string(x->takeDir),
                          std::string(x->takeName), x->driverCount);
    };
    ASSERT_EQ(setupOf(back), setupOf(s));
    for (int i = 0; i < s->driverCount; ++i) {
        const ChannelDriver &a = s->drivers[i], &b = back->drivers[i];
        auto driverOf = [](const ChannelDriver &d) {
            return std::tie(d.name, d.enabled, d.remote, d.remoteHost, d.directory, d.runMode, d.frequency, d.dofCount);
        };
        ASSERT_EQ(driverOf(b), driverOf(a));
        for (int k = 0; k < a.dofCount; ++k) {
            auto dofOf = [](const ChannelDof &d) {
                return std::tie(d.name, d.direction, d.active, d.offset, d.scale, d.maximum, d.minimum);
            };
            EXPECT_EQ(dofOf(b.dofs[k]), dofOf(a.dofs[k])) << i << " " << k;
        }
    }
    const ChannelConnection *a = s->connections, *b = back->connections;
    for (; a && b; a = a->next, b = b->next) {
        EXPECT_EQ(std::tie(b->kind, b->expression, b->itemType, b->enabled, b->calibrated),
                  std::tie(a->kind, a->expression, a->itemType, a->enabled, a->calibrated));
        EXPECT_EQ(0, memcmp(b->calibration, a->calibration, sizeof a->calibration));
    }
    EXPECT_EQ(a, nullptr);
    EXPECT_EQ(b, nullptr);
    channelSetupFree(back);
    channelSetupFree(s);
}

// ---------------------------------------------------------------------------
// The setup file of a scene

TEST(ChannelSceneSetup, NamedElementElseTheScenesNameElseNone) {
    TempDir dir;
    dir.mkdir("SETUP_CHANNELS");
    Database db;
    db.name = "t";
    db.path = dir.path();
    Dictionary dict;
    dictCreateChapters(&dict, nullptr, 1);
    dict.database = &db;
    elemAdd(&dict, CHP_SCENES, elemNameParse("shot.1-0", nullptr, 0), nullptr, nullptr, 0, 0);
    EXPECT_EQ(channelSetupFileForScene(&dict), "");

    ChannelSetup *s = smallSetup();
    const std::string first = channelSetupWriteForScene(&db, "shot", s);
    EXPECT_EQ(first, dir.path() + "/SETUP_CHANNELS/shot.1-0.chn");
    EXPECT_EQ(channelSetupFileForScene(&dict), first);
    const std::string second = channelSetupWriteForScene(&db, "shot", s);
    EXPECT_EQ(second, dir.path() + "/SETUP_CHANNELS/shot.2-0.chn");
    EXPECT_EQ(channelSetupFileForScene(&dict), second);  // the newest

    dir.write("SETUP_CHANNELS/rig.3-0.chn", "CHANNELS 3.51\n");
    elemAdd(&dict, CHP_SETUP_CHANNELS, elemNameParse("rig.3-0", nullptr, 0), nullptr, nullptr, 0, 0);
    EXPECT_EQ(channelSetupFileForScene(&dict), dir.path() + "/SETUP_CHANNELS/rig.3-0.chn");
    dictFree(&dict, 0);
    channelSetupFree(s);
}
