#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>
#include <tuple>

#include "support/eventloop.h"
#include "support/httptestserver.h"
#include "support/toolprocess.h"

using zuvotest::HttpTestServer;

namespace {

// What a run of zuvo-plparse with args printed, serving the event loop
// meanwhile (the test's HTTP server lives in this process): with --json the
// one JSON object as "rows: N" and "title|uri|mimeType|artist" a row, or as
// "error: name: message"; else stdout and stderr as they are.
QString plparse(const QStringList& args, int expectedExitCode) {
    QProcess process;
    zuvotest::startTool(process, QStringLiteral(ZUVO_PLPARSE_PATH), args);
    EXPECT_TRUE(process.waitForStarted(10000));
    EXPECT_TRUE(zuvotest::waitUntil([&] { return process.state() == QProcess::NotRunning; }, 60000));
    const QByteArray out = process.readAllStandardOutput();
    const QString err = QString::fromUtf8(process.readAllStandardError());
    EXPECT_EQ(process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, expectedExitCode)
        << err.toStdString();
    if (!args.contains(QStringLiteral("--json")))
        return QStringLiteral("stdout:") + QString::fromUtf8(out) + QStringLiteral("\nstderr:") + err;
    QJsonParseError error;
    const QJsonObject json = QJsonDocument::fromJson(out, &error).object();
    EXPECT_EQ(error.error, QJsonParseError::NoError) << out.toStdString();
    EXPECT_EQ(json.value("ok").toBool(), expectedExitCode == 0);
    const QJsonObject e = json.value("error").toObject();
    if (!e.isEmpty())
        return QStringLiteral("error: %1: %2").arg(e.value("name").toString(), e.value("message").toString());
    const QJsonArray rows = json.value("rows").toArray();
    QString text = QStringLiteral("rows: %1\n").arg(rows.size());
    for (const QJsonValue& row : rows)
        text += row["title"].toString() + '|' + row["uri"].toString() + '|' + row["mimeType"].toString() +
                '|' + row["artist"].toString() + '\n';
    return text;
}

} // namespace

TEST(ZuvoPlParse, Runs) {
    HttpTestServer server;
    QByteArray many = "#EXTM3U\n";
    for (int i = 0; i < 25; ++i)
        many +=
            "#EXTINF:1,Band - Song " + QByteArray::number(i) + "\nsong" + QByteArray::number(i) + ".mp3\n";
    server.setResponse(QStringLiteral("/lists/many.m3u"), 200, many);
    server.setResponse(QStringLiteral("/missing"), 404, "<html>gone</html>");
    const QString data = QStringLiteral(ZUVO_TEST_DATA_DIR "/");
    const QString dataUrl = QStringLiteral("file://") + QDir(data).absolutePath() + QLatin1Char('/');
    const auto url = [&](const char* path) { return server.url(QString::fromLatin1(path)); };
    const QString json = QStringLiteral("--json");
    // Arguments, exit code, and texts the output contains.
    const std::tuple<QStringList, int, QStringList> cases[] = {
        // The content type stands in for the header of a local file.
        {{json, "--content-type", "video/x-ms-asf", data + "stream.ini"},
         0,
         {"rows: 4\n", "\n|mmsh://wm.example.com/live?MSWMExt=.asf|video/x-ms-asf|\n"}},
        {{json, dataUrl + "station.asx"},
         0,
         {"rows: 4\n", "\nIntro|" + dataUrl + "clips/intro.wma|audio/x-ms-wma|\n"}},
        // Every row, not only the ten a play logic looks at.
        {{json, url("/lists/many.m3u")},
         0,
         {"rows: 25\n", "\nSong 24|" + url("/lists/song24.mp3") + "|audio/mpeg|Band\n"}},
        {{json, url("/missing")}, 2, {"error: unknownFormat: Unknown playlist format detected."}},
        {{json, data + "does-not-exist.m3u"}, 2, {"error: readError: Cannot read "}},
        {{json}, 1, {"error: usage: missing URL-or-FILE"}},
        {{json, data + "urls.txt", data + "urls.txt"},
         1,
         {"error: usage: exactly one URL-or-FILE is expected"}},
        {{json, "--jsn", data + "urls.txt"}, 1, {"error: usage: Unknown option"}},
        {{data + "party.m3u"}, 0, {"Title", "Around the World", "Daft Punk", "\n5 row(s)\n"}},
        {{data + "../CMakeLists.txt"},
         2,
         {"stdout:\nstderr:", "error: unknownFormat: Unknown playlist format detected.\n"}},
    };
    for (const auto& [args, exitCode, expected] : cases) {
        SCOPED_TRACE(args.join(QLatin1Char(' ')).toStdString());
        const QString output = plparse(args, exitCode);
        for (const QString& text : expected)
            EXPECT_TRUE(output.contains(text)) << output.toStdString();
    }
}
