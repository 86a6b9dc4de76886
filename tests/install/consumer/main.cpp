// A minimal host application built against the installed ZuvoPlay package:
// it creates a model tree, the simulated streamer and a track-list play
// logic on the player's path, and plays two short tracks to their end
// through the client proxy.
#include <QCoreApplication>
#include <QTimer>
#include <cstdio>

#include "model/cmnodes.h"
#include "playlogicinterface.h"
#include "simulatedstreamer.h"
#include "tracklistplaylogic.h"
#include "zuvoplayversion.h"

namespace {

ZuvoRoles track(const QString& uri) {
    ZuvoResource resource;
    resource.setUri(uri);
    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>() << resource);
    mediaData.setActiveResource(resource);
    ZuvoRoles roles;
    roles.setTitle(uri);
    roles.setMediaData(mediaData);
    return roles;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    CMRootScope root;
    SimulatedStreamer streamer(root.nodes());
    streamer.setSpeed(1000);
    TrackListPlayLogic playLogic(root.nodes(), ZuvoPlayerPath());
    playLogic.setTracks({track(QStringLiteral("sim://a.mp3?zuvo-duration=8000")),
                         track(QStringLiteral("sim://b.mp3?zuvo-duration=8000"))});

    int plays = 0;
    QObject::connect(&streamer, &SimulatedStreamer::commandReceived, &app, [&plays](const QString& command) {
        if (command == QLatin1String("play") || command == QLatin1String("setNextMedia"))
            ++plays;
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
    std::printf("libzuvo_api_play %s: %d tracks sent to the streamer\n", qPrintable(zuvoPlayVersion()),
                plays);
    return rc == 0 && plays == 2 ? 0 : 1;
}
