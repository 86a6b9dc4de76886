// A minimal host application built against the installed ZuvoPlay package:
// the simulated streamer and a track-list play logic on the player's path
// play a list of one short track twice to its end, started through the client
// proxy.
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

    int plays = 0;
    QObject::connect(&streamer, &SimulatedStreamer::commandReceived, &app, [&plays](const QString& command) {
        plays += command == QLatin1String("play") || command == QLatin1String("setNextMedia");
    });
    bool started = false;
    QObject::connect(&playLogic, &PlayLogicBase::playbackDataChanged, &app,
                     [&](const ZuvoPlayLogicData& data) {
                         started = started || data.state() == ZuvoPlayLogicState::playing;
                         if (started && data.state() == ZuvoPlayLogicState::stopped)
                             QCoreApplication::quit();
                     });
    PlayLogicInterface::playerInstance()->playContainer(ZuvoRoles(), ZuvoRoles(), 0, 0);
    QTimer::singleShot(20000, &app, [] { QCoreApplication::exit(1); });
    const int rc = app.exec();
    std::printf("libzuvo_api_play %s: %d tracks sent\n", qPrintable(zuvoPlayVersion()), plays);
    return rc == 0 && plays == 2 ? 0 : 1;
}
