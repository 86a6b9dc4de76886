#pragma once

#include <QString>
#include <QStringList>

// The command line of zuvo-play.
struct PlayOptions {
    enum class Streamer { Gst, Simulated };

    QStringList items; // media URIs, files, folders, playlist URLs, local playlists
    // The GStreamer streamer when the tool is built with it, else the
    // simulated one.
    Streamer streamer = defaultStreamer();
    QString sink = QStringLiteral("auto"); // audio output of the GStreamer streamer
    double speed = 1.0;                    // simulated ms per real ms
    bool json = false;
    QString logConfig; // log4cplus properties file; empty: the default set-up
    bool help = false;

    // Whether this build has the GStreamer streamer.
    static bool haveGst();
    static Streamer defaultStreamer() { return haveGst() ? Streamer::Gst : Streamer::Simulated; }
};

// What parsing the command line came to: the options, or the reason they
// are unusable (error not empty). The help text is for --help and errors.
struct PlayOptionsResult {
    PlayOptions options;
    QString error;
    QString helpText;
};

// Parses arguments (the program name first, as QCoreApplication::arguments()
// gives them). --help is no error; no item is (unless --help is given).
PlayOptionsResult parsePlayOptions(const QStringList& arguments);
