// A minimal host application built against the installed ZuvoPlay package:
// a track-list play logic on the simulated streamer plays a list of two short
// tracks to its end, started through the player's client proxy.
#include <QCoreApplication>
#include <QTimer>
#include <cstdio>

#include "model/cmnodes.h"
#include "playlogicinterface.h"
#include "simulatedstreamer.h"
#include "tracklistplaylogic.h"
#include "zuvoplayversion.h"

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    CMRootScope root;
    SimulatedStreamer streamer(root.nodes());
    streamer.setSpeed(1000);
    TrackListPlayLogic playLogic(root.nodes(), ZuvoPlayerPath());
    ZuvoResource resource;
    resource.setUri(QStringLiteral("sim://a.mp3?zuvo-duration=8000"));
    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>() << resource);
    ZuvoRoles track;
    track.setMediaData(mediaData);
    playLogic.setTracks({track, track});

    bool started = false;
    QObject::connect(&playLogic, &PlayLogicBase::playbackDataChanged, &app,
                     [&](const ZuvoPlayLogicData& data) {
                         started = started || data.state() == ZuvoPlayLogicState::playing;
                         if (started && data.state() == ZuvoPlayLogicState::stopped)
                             QCoreApplication::exit(playLogic.currentIndex() == 1 ? 0 : 1);
                     });
    PlayLogicInterface::playerInstance()->playContainer(ZuvoRoles(), ZuvoRoles(), 0, 0);
    QTimer::singleShot(20000, &app, [] { QCoreApplication::exit(1); });
    const int rc = app.exec();
    std::printf("libzuvo_api_play %s: exit %d\n", qPrintable(zuvoPlayVersion()), rc);
    return rc;
}
