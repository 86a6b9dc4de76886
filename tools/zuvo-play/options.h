#pragma once

#include <QString>
#include <QStringList>

// The command line of zuvo-play.
struct PlayOptions {
    QStringList items;  // media URIs, playlist URLs, local playlist files
    double speed = 1.0; // simulated ms per real ms
    bool json = false;
    QString logConfig; // log4cplus properties file; empty: the default set-up
    bool help = false;
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
