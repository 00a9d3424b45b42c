// The channels chapter and the dependency check, on a scene built in memory
// against the real relation rows.
#include <gtest/gtest.h>

#include "capture.h"
#include "channel.h"
#include "dictionary.h"

namespace {

class ChannelChapter : public ::testing::Test {
protected:
    void SetUp() override {
        if (relRowFind(&g_relationDict, REL_EXPRESSION) < 0) {
            std::string path = bwtest::sourcePath("rsrc/Relations.rsrc");
            ASSERT_EQ(dbLoadRelationDictionary(&g_relationDict, path.c_str(), 1), 1);
        }
        dictCreateChapters(&dict, nullptr, 1);
        setup = channelSetupCreate(4);
        ChannelDriver tracker, dials;
        tracker.name = "tracker";
        tracker.dofCount = 3;
        tracker.dofs.resize(3);
        tracker.dofs[0].name = "x";
        dials.name = "dials";
        dials.dofCount = 1;
        dials.dofs.resize(1);
        channelSetupAddDriver(setup, tracker);
        channelSetupAddDriver(setup, dials);
    }
    void TearDown() override {
        channelChapterFree(&dict);
        dictFree(&dict, 0);
        channelSetupFree(setup);
    }
    int model(const char *name) {
        return elemAdd(&dict, CHP_MODELS, elemNameParse(name, nullptr, 0), nullptr, nullptr, 0, 0);
    }
    // 20010 entries of the element's side `child` towards the channels chapter.
    int links(int chapter, int index, int child) {
        return relCount(elemGet(&dict, chapter, index), child, -1, REL_EXPRESSION, CHP_CHANNEL_DRIVERS);
    }
    int connections() {
        int n = 0;
        for (ChannelConnection *c = setup->connections; c; c = c->next) ++n;
        return n;
    }
    Dictionary dict;
    ChannelSetup *setup = nullptr;
};

}  // namespace

TEST_F(ChannelChapter, EachDriverIsAnElementWithItsSetupAndIndex) {
    ASSERT_EQ(channelChapterMake(&dict, setup), 2);
    // A second make replaces the first: one element a driver.
    ASSERT_EQ(channelChapterMake(&dict, setup), 2);
    Chapter *chapter = dictChapter(&dict, CHP_CHANNEL_DRIVERS);
    ASSERT_EQ(elemCountLive(chapter), 2);
    const char *names[] = {"CHN tracker", "CHN dials"};
    for (int i = 0; i < 2; ++i) {
        const int index = elemFindByName(&dict, CHP_CHANNEL_DRIVERS, -1, nullptr, names[i], -1, -1, 0);
        ASSERT_GE(index, 0) << names[i];
        auto *record = static_cast<ChannelDriverRecord *>(elemGet(&dict, CHP_CHANNEL_DRIVERS, index)->data);
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->setup, setup);
        EXPECT_EQ(record->driver, i);
    }
    // The name is cut at 80 characters of the driver's.
    EXPECT_EQ(channelDriverElementName(std::string(100, 'd').c_str()), "CHN " + std::string(80, 'd'));
}

TEST_F(ChannelChapter, ConnectionsJoinTheirElementToTheDriverAndOldJoinsGo) {
    const int ball = model("ball");
    const int cube = model("cube");
    channelSetupAddConnection(setup, CHANNEL_CONN_INPUT, "ball.tx = 2 * CHN tracker.x + 1");
    channelSetupAddConnection(setup, CHANNEL_CONN_OUTPUT, "CHN dials.DOF0 = 1 * cube.ry + 0");
    ASSERT_EQ(channelChapterMake(&dict, setup), 2);
    bwtest::StreamCapture err(stderr);
    ASSERT_EQ(channelDependencyCheck(&dict, setup, 0), 1);
    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(setup->cycle, 0);
    EXPECT_EQ(setup->inputCount, 1);
    EXPECT_EQ(setup->outputCount, 1);
    // The input's element reads the driver; the output's driver reads the element.
    EXPECT_EQ(links(CHP_MODELS, ball, 1), 1);
    EXPECT_EQ(links(CHP_MODELS, cube, 0), 1);
    EXPECT_EQ(links(CHP_MODELS, cube, 1), 0);
    ASSERT_EQ(setup->connections->valid, 1);
    EXPECT_EQ(setup->connections->element, ball);
    EXPECT_EQ(setup->connections->next->kind, CHANNEL_CONN_OUTPUT);
    // A second check drops what the first set: still one join each.
    ASSERT_EQ(channelDependencyCheck(&dict, setup, 0), 1);
    EXPECT_EQ(links(CHP_MODELS, ball, 1), 1);
    EXPECT_EQ(links(CHP_MODELS, cube, 0), 1);
}

TEST_F(ChannelChapter, ConnectionToADeletedModelIsDisabledAndABadOneDropped) {
    const int ball = model("ball");
    channelSetupAddConnection(setup, CHANNEL_CONN_INPUT, "ball.tx = 1 * CHN tracker.DOF2 + 0");
    channelSetupAddConnection(setup, CHANNEL_CONN_INPUT, "ball.ty = 1 * CHN radar.x + 0");
    channelSetupAddConnection(setup, CHANNEL_CONN_INPUT, "ball ty = CHN");
    ASSERT_EQ(channelChapterMake(&dict, setup), 2);
    ASSERT_EQ(elemRemove(&dict, CHP_MODELS, nullptr, ball, -1, 0, 0), 1);
    bwtest::StreamCapture err(stderr);
    EXPECT_EQ(channelDependencyCheck(&dict, setup, 0), 1);
    EXPECT_EQ(err.text(),
              "Channel connection \"ball.tx = 1 * CHN tracker.DOF2 + 0\" disabled: its element is gone.\n"
              "Channel connection \"ball.ty = 1 * CHN radar.x + 0\": no channel radar.x.\n"
              "Bad channel connection \"ball ty = CHN\".\n");
    ASSERT_EQ(connections(), 1);
    EXPECT_EQ(setup->connections->enabled, 0);
    EXPECT_EQ(setup->connections->valid, 0);
    EXPECT_EQ(setup->inputCount, 0);
}

TEST_F(ChannelChapter, ACycleSetsTheFlagAndIsWordedForEditorAndRun) {
    const int a = model("a"), b = model("b");
    ASSERT_EQ(relAdd(&dict, nullptr, a, b, 111, 1, 1, nullptr, 1), 1);
    ASSERT_EQ(relAdd(&dict, nullptr, b, a, 111, 1, 1, nullptr, 1), 1);
    channelSetupAddConnection(setup, CHANNEL_CONN_INPUT, "a.tx = 1 * CHN tracker.x + 0");
    ASSERT_EQ(channelChapterMake(&dict, setup), 2);
    {
        bwtest::StreamCapture err(stderr);
        EXPECT_EQ(channelDependencyCheck(&dict, setup, 0), 0);
        EXPECT_EQ(err.text(), "The connections are generating a cycle in dependencies.\n");
    }
    EXPECT_EQ(setup->cycle, 1);
    EXPECT_EQ(dict.update.dirty, 1);
    bwtest::StreamCapture err(stderr);
    EXPECT_EQ(channelDependencyCheck(&dict, setup, 1), 0);
    EXPECT_EQ(err.text(), "Dependency cycle detected - channels won't run\n");
    // Cut the cycle and the flag clears.
    relFind(elemGet(&dict, CHP_MODELS, b), 111, CHP_MODELS, a)->activ = 0;
    EXPECT_EQ(channelDependencyCheck(&dict, setup, 1), 1);
    EXPECT_EQ(setup->cycle, 0);
}
