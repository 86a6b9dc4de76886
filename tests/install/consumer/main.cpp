// A minimal host application built against the installed ZuvoPlay package:
// the simulated streamer and a track-list play logic on the player's path
// play two short tracks to their end through the client proxy.
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
    QList<ZuvoRoles> tracks;
    for (const char* uri : {"sim://a.mp3?zuvo-duration=8000", "sim://b.mp3?zuvo-duration=8000"}) {
        ZuvoResource resource;
        resource.setUri(QString::fromLatin1(uri));
        ZuvoMediaData mediaData;
        mediaData.setResources(ZuvoList<ZuvoResource>() << resource);
        ZuvoRoles roles;
        roles.setMediaData(mediaData);
        tracks << roles;
    }
    playLogic.setTracks(tracks);

    int plays = 0;
    QObject::connect(&streamer, &SimulatedStreamer::commandReceived, &app, [&plays](const QString& command) {
        plays += command == QLatin1String("play") || command == QLatin1String("setNextMedia");
    });
    PlayLogicInterface* client = PlayLogicInterface::playerInstance();
    bool started = false;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &app, [&] {
        const ZuvoPlayLogicState::Enum state = client->data().state();
        started = started || state == ZuvoPlayLogicState::playing;
        if (started && state == ZuvoPlayLogicState::stopped)
            QCoreApplication::quit();
    });
    poll.start(10);
    client->playContainer(ZuvoRoles(), ZuvoRoles(), 0, 0);
    QTimer::singleShot(20000, &app, [] { QCoreApplication::exit(1); });
    const int rc = app.exec();
    std::printf("libzuvo_api_play %s: %d tracks sent\n", qPrintable(zuvoPlayVersion()), plays);
    return rc == 0 && plays == 2 ? 0 : 1;
}
