// Status text drawn into each frame, and the rates of the two sides.
#include <cstdio>
#include <string>

#include "graphic.h"
#include "viewer.h"

namespace {

const float red[3] = {1.0f, 0.0f, 0.0f};
const float green[3] = {0.0f, 1.0f, 0.0f};
const float violet[3] = {0.4f, 0.0f, 0.9f};
constexpr int textX = 20;

// Draws one line at y and moves y to the next line.
void line(const char *text, const float *color, int &y) {
    TOL_grStringDraw(text, color, textX, y);
    y -= 25;
}

// Turns gathered times into percentages of `sum` and clears them.
void share(double &acc, double &percent, double sum) {
    percent = acc * 100.0 / sum;
    acc = 0.0;
}

}  // namespace

void viewerStatusText() {
    char text[256];
    if (viewer.showUserText)
        TOL_grStringDraw(viewer.userText, viewer.userTextColor, viewer.userTextX, viewer.userTextY);

    int y = 150;
    if (viewer.adjustWalkSpeed) {
        snprintf(text, sizeof text, "Walking Speed: %.0f", static_cast<double>(viewer.walkSpeed));
        TOL_grStringDraw(text, red, textX, y);
        return;
    }
    if (viewer.adjustElevatorSpeed) {
        snprintf(text, sizeof text, "Elevator Speed: %.0f",
                 static_cast<double>(viewer.elevatorSpeed));
        TOL_grStringDraw(text, red, textX, y);
        return;
    }
    if (!viewer.showInfo) return;

    if (loadAcquire(viewer.playing) || viewer.frameShown) {
        snprintf(text, sizeof text, "Frame: %4d ", loadAcquire(viewer.curFrame));
        line(text, red, y);
    }
    if (loadAcquire(viewer.takeRecording) && viewer.channelSetup[0]) {
        snprintf(text, sizeof text, "Record time: %5.1f seconds",
                 viewerClock() - double(viewer.channelSetup[0]->recordStartTime));
        line(text, red, y);
    }
    if (glbVar.cullEnable) line("Viewing Frustum Culling", violet, y);
    if (glbVar.listEnable) line("Display Lists", violet, y);
    if (viewer.statsLevel == 1) {
        snprintf(text, sizeof text, "Draw   (%d): %4.2f/sec", viewer.drawCpu, viewer.drawRate);
        line(text, green, y);
        snprintf(text, sizeof text, "Update (%d): %4.2f/sec", viewer.updateCpu, viewer.updateRate);
        line(text, red, y);
    } else if (viewer.statsLevel == 2) {
        snprintf(text, sizeof text, "Draw   (%d): %2.0f/sec [drawUpdate:%3.0f%% clear:%3.0f%% draw:%3.0f%%]",
                 viewer.drawCpu, viewer.drawRate, viewer.drawUpdateShare, viewer.clearShare,
                 viewer.drawShare);
        line(text, green, y);
        snprintf(text, sizeof text, "                        hiUpd:%3.0f%% hiPre:%3.0f%%",
                 viewer.hiUpdShare, viewer.hiPreShare);
        line(text, green, y);
        snprintf(text, sizeof text, "Update (%d): %2.0f/sec [loUpd:%3.0f%% loPre:%3.0f%%]",
                 viewer.updateCpu, viewer.updateRate, viewer.loUpdShare, viewer.loPreShare);
        line(text, red, y);
    }

    std::string last;
    if (viewer.stereo) {
        snprintf(text, sizeof text, "IOD: %5.2f ", static_cast<double>(viewer.gprops.interOcular));
        last += text;
    }
    if (viewer.parallel) last += "PARALLEL DRAW/UPDATE ";
    if (loadAcquire(viewer.channelsRunning)) last += "(CHANNEL I/O ACTIVE)";
    if (viewer.gprops.antialias) {
        snprintf(text, sizeof text, "%s(ANTIALIASING %d)", last.c_str(), viewer.gprops.anti_lev);
        last = text;
    }
    if (viewer.walkMode) {
        snprintf(text, sizeof text, "%s(WALK)", last.c_str());
        last = text;
    }
    line(last.c_str(), violet, y);
}

namespace {

// One more call of a side: the time since its previous call is gathered.
void tick(double now, double &last, double &sum, int32_t &count) {
    if (last > 0.0) {
        sum += now - last;
        ++count;
    }
    last = now;
}

// Once more than a second has gathered: the side's rate, and 0 to start again.
bool rate(double &sum, int32_t &count, double &rateOut, double *gatheredSum) {
    if (sum <= 1.0) return false;
    rateOut = count / sum;
    *gatheredSum = sum;
    sum = 0.0;
    count = 0;
    return true;
}

}  // namespace

void statsDrawTick(double now) { tick(now, viewer.drawLast, viewer.drawTimeSum, viewer.drawCount); }

void statsDrawRates() {
    double sum = 0.0;
    if (!rate(viewer.drawTimeSum, viewer.drawCount, viewer.drawRate, &sum)) return;
    share(viewer.drawUpdateAcc, viewer.drawUpdateShare, sum);
    share(viewer.clearAcc, viewer.clearShare, sum);
    share(viewer.drawAcc, viewer.drawShare, sum);
    share(viewer.hiUpdAcc, viewer.hiUpdShare, sum);
    share(viewer.hiPreAcc, viewer.hiPreShare, sum);
}

// A side whose statistics are off forgets what it gathered, so that the time
// spent so does not count as one long frame once they are back on.
void statsDrawIdle() {
    viewer.drawLast = 0.0;
    viewer.drawTimeSum = 0.0;
    viewer.drawCount = 0;
    viewer.drawUpdateAcc = viewer.clearAcc = viewer.drawAcc = viewer.hiUpdAcc = viewer.hiPreAcc = 0.0;
}

void statsUpdateIdle() {
    viewer.updateLast = 0.0;
    viewer.updateTimeSum = 0.0;
    viewer.updateCount = 0;
    viewer.loUpdAcc = viewer.loPreAcc = 0.0;
}

void statsUpdateTick(double now) {
    tick(now, viewer.updateLast, viewer.updateTimeSum, viewer.updateCount);
}

void statsUpdateRates() {
    double sum = 0.0;
    if (!rate(viewer.updateTimeSum, viewer.updateCount, viewer.updateRate, &sum)) return;
    share(viewer.loUpdAcc, viewer.loUpdShare, sum);
    share(viewer.loPreAcc, viewer.loPreShare, sum);
}
