// A capture over the Scene Contexts of the viewer: the first starts the
// drivers, the others prepare their lists and read through the same arena.
#include <cstdio>

#include "channel.h"
#include "tol.h"

int channelCaptureBegin(ChannelSetup **setups, TOL_Scene *scenes, int count) {
    int ok = 1;
    for (int i = 0; i < count && ok; ++i) {
        ChannelSetup *setup = setups[i];
        TolSceneFrame frame(&scenes[i]);
        if (frame.status() != 0 || !setup) {
            ok = 0;
            break;
        }
        channelRunInit(setup, CHANNEL_MODE_CONTROL, 0);
        setup->stopFlag = 0;
        if (i == 0) {
            ok = channelRunStart(setup);
            if (!ok && setup->takeEnable) {
                fprintf(stderr, "Will try again with taking off\n");
                setup->takeEnable = 0;
                channelRunInit(setup, CHANNEL_MODE_CONTROL, 0);
                ok = channelRunStart(setup);
            }
        } else {
            // Lists and values only: the drivers are the first context's.
            setup->useDrivers = 0;
            ok = channelRunPrepare(setup);
        }
        frame.finish(0);
    }
    return ok;
}

void channelCaptureEnd(ChannelSetup **setups, TOL_Scene *scenes, int count) {
    for (int i = 0; i < count; ++i) {
        if (!setups[i]) continue;
        TolSceneFrame frame(&scenes[i]);
        if (frame.status() != 0) continue;
        channelRunClose(setups[i]);
        if (i > 0) channelRunUnprepare(setups[i]);
        else channelRunStop(setups[i]);
        frame.finish(0);
    }
}
