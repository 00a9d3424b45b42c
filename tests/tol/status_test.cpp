// The status table and the reporter.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "capture.h"
#include "tol.h"

namespace {

struct Report {
    TOL_Status code;
    uint32_t cls;
    std::string text;
};
std::vector<Report> reports;
void sink(TOL_Status code, uint32_t cls, const char *text) { reports.push_back({code, cls, text}); }

// Routes reports into `reports` for one test and restores the defaults after.
class ReportSink : public ::testing::Test {
protected:
    void SetUp() override {
        reports.clear();
        tol_setReportRoute(TOL_ROUTE_CALLBACK, sink);
    }
    void TearDown() override {
        tol_setReportRoute(TOL_ROUTE_STDOUT, nullptr);
        tol_setMinimumClass(TOL_CLASS_STATUS);
    }
};

}  // namespace

TEST(StatusTable, RowsCarryTheirClassAndText) {
    EXPECT_STREQ(tol_statusFormat(0), "%s No error");
    EXPECT_EQ(tol_statusClass(0), TOL_CLASS_STATUS);
    EXPECT_EQ(tol_statusClass(2), TOL_CLASS_MESSAGE);
    EXPECT_EQ(tol_statusClass(16), TOL_CLASS_WARNING);
    EXPECT_EQ(tol_statusClass(30), TOL_CLASS_ERROR);
    EXPECT_EQ(tol_statusClass(5), TOL_CLASS_MODE);
    EXPECT_STREQ(tol_statusFormat(67), "%s Symbol \"%s\" not found");
    EXPECT_STREQ(tol_statusFormat(93), "Symbol %s ignored.  A symbol of this type has already been read");
    EXPECT_STREQ(tol_statusFormat(149), "%s: Element cannot be found");
    EXPECT_EQ(tol_statusFormat(150), nullptr);
    EXPECT_EQ(tol_statusFormat(-1), nullptr);
    // Every row has a format, free rows included, so a report never reads a null.
    for (int code = 0; code < TOL_STATUS_COUNT; ++code) EXPECT_NE(tol_statusFormat(code), nullptr);
}

TEST(Reporter, PrintsClassWordAndTextOnStandardOutput) {
    bwtest::OutputCapture cap;
    EXPECT_EQ(tol_report(16, "TOL_cameraOrbit(): scene:"), 16);
    EXPECT_EQ(tol_report(45, "TOL_sceneLoad:", "kitchen"), 45);
    EXPECT_EQ(cap.out.text(),
              "BW_WARNING: TOL_cameraOrbit(): scene: Null or Invalid argument\n"
              "BW_ERROR: TOL_sceneLoad: Cannot read scene kitchen\n");
    EXPECT_EQ(cap.err.text(), "");
}

TEST_F(ReportSink, RoutesAndMinimumClass) {
    EXPECT_EQ(tol_report(63, "TopoSort:", 8, 3, -1), 63);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].cls, TOL_CLASS_ERROR);
    EXPECT_EQ(reports[0].text, "TopoSort: A Cycle has been detected at element (chp,elm,grp= 8 3 -1)");

    // Warnings are hidden below the ERROR class, while the code still comes back.
    EXPECT_EQ(tol_setMinimumClass(TOL_CLASS_ERROR), TOL_CLASS_STATUS);
    EXPECT_EQ(tol_report(16, "x"), 16);
    EXPECT_EQ(tol_report(70, "y"), 70);
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[1].text, "Out of Memory for y");

    tol_setReportRoute(TOL_ROUTE_STDERR, nullptr);
    bwtest::OutputCapture cap;
    tol_report(4, "on the error stream");
    EXPECT_EQ(cap.err.text(), "BW_ERROR: on the error stream\n");
    EXPECT_EQ(cap.out.text(), "");
}

TEST_F(ReportSink, ScratchCodePrintsTheBufferVerbatim) {
    strcpy(TOL_SCRATCH, "100% of %s");
    tol_report(124);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].text, "100% of %s");
    TOL_SCRATCH[0] = '\0';
}

TEST_F(ReportSink, VerificationOptionsFromTheEnvironment) {
    tol_verifyClear(0xffffffffu);
    {
        bwtest::ScopedEnv env("TOL_VERIFY_OPTIONS", "abc");
        tol_verifyInit();
    }
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].cls, TOL_CLASS_ERROR);
    EXPECT_EQ(reports[0].text, "Bad value for verification environment variable");
    EXPECT_EQ(tol_verifyWord(), 0u);

    {
        bwtest::ScopedEnv env("TOL_VERIFY_OPTIONS", "289");
        tol_verifyInit();
    }
    EXPECT_TRUE(tol_verifyEnabled(TOL_VERIFY_MODEL));
    EXPECT_TRUE(tol_verifyEnabled(TOL_VERIFY_ELEMENT));
    EXPECT_TRUE(tol_verifyEnabled(TOL_VERIFY_CAMERA));
    EXPECT_FALSE(tol_verifyEnabled(TOL_VERIFY_DATABASE));
    tol_verifyClear(0xffffffffu);
}

TEST(Messages, GoToStandardErrorWhateverTheClass) {
    bwtest::OutputCapture cap;
    msgStatus("status");
    msgMessage("message");
    msgError("error");
    EXPECT_EQ(cap.err.text(), "status\nmessage\nerror\n");
    EXPECT_EQ(cap.out.text(), "");
}

// The names come from the rows that give the texts: a name stands for the text
// its callers mean.
TEST(StatusTable, NamesStandForTheirRows) {
    EXPECT_EQ(TOL_ST_NO_ERROR, 0);
    EXPECT_EQ(TOL_ST_ERROR_TEXT, 4);
    EXPECT_STREQ(tol_statusFormat(TOL_ST_NULL_ARGUMENT), "%s Null or Invalid argument");
    EXPECT_STREQ(tol_statusFormat(TOL_ST_CANNOT_READ_SCENE), "%s Cannot read scene %s");
    EXPECT_STREQ(tol_statusFormat(TOL_ST_OUT_OF_MEMORY), "Out of Memory for %s");
    EXPECT_EQ(TOL_ST_INVALID_SCENE, 71);
    EXPECT_EQ(TOL_ST_ELEMENT_OF_OTHER_SCENE, 72);
    EXPECT_EQ(TOL_ST_WRONG_ELEMENT_KIND, 73);
    EXPECT_EQ(TOL_ST_STOPPED, 97);
    EXPECT_EQ(TOL_ST_INVALID_GRAPHIC_DATA, 98);
    EXPECT_EQ(TOL_ST_SCRATCH_TEXT, 124);
    EXPECT_EQ(TOL_ST_ELEMENT_CANNOT_BE_FOUND_149, TOL_STATUS_COUNT - 1);
}
