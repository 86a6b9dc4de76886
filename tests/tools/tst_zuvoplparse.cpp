#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "logging.h"
#include "support/eventloop.h"
#include "support/httptestserver.h"
#include "support/toolprocess.h"

using zuvotest::HttpTestServer;

namespace {

struct ToolRun {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

// Runs zuvo-plparse with args, serving the event loop meanwhile (the test's
// HTTP server lives in this process).
ToolRun plparse(const QStringList& args) {
    QProcess process;
    zuvotest::startTool(process, QStringLiteral(ZUVO_PLPARSE_PATH), args);
    EXPECT_TRUE(process.waitForStarted(10000));
    EXPECT_TRUE(zuvotest::waitUntil([&] { return process.state() == QProcess::NotRunning; }, 60000));
    process.waitForFinished(1000);
    ToolRun run;
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

// stdout as the one JSON object it must be.
QJsonObject jsonOf(const ToolRun& run) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(run.out, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << run.out.toStdString();
    EXPECT_TRUE(document.isObject()) << run.out.toStdString();
    return document.object();
}

QString dataFile(const char* name) {
    return QStringLiteral(ZUVO_TEST_DATA_DIR "/") + QString::fromLatin1(name);
}

QString fileUrlDir(const QString& dir) {
    return QStringLiteral("file://") + QDir(dir).absolutePath() + QLatin1Char('/');
}

} // namespace

TEST(ZuvoPlParse, JsonRowsOfLocalFiles) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    QByteArray many = "#EXTM3U\n";
    for (int i = 0; i < 25; ++i)
        many +=
            "#EXTINF:1,Band - Song " + QByteArray::number(i) + "\nsong" + QByteArray::number(i) + ".mp3\n";
    QFile manyFile(dir.filePath(QStringLiteral("many.m3u")));
    ASSERT_TRUE(manyFile.open(QIODevice::WriteOnly));
    manyFile.write(many);
    manyFile.close();
    QFile iniFile(dir.filePath(QStringLiteral("stream.ini")));
    ASSERT_TRUE(iniFile.open(QIODevice::WriteOnly));
    iniFile.write("[Reference]\r\nRef1=http://wm.example.com/live\r\n");
    iniFile.close();

    struct Case {
        const char* name;
        QStringList args;
        int rows;
        int index; // the row checked
        QJsonObject row;
    };
    const QString dataDir = fileUrlDir(QStringLiteral(ZUVO_TEST_DATA_DIR));
    const Case cases[] = {
        {"M3U with BOM and CRLF",
         {QStringLiteral("--json"), dataFile("party.m3u")},
         5,
         1,
         {{"title", "Radio Paradise"},
          {"uri", "http://stream.example.org/rp/main.aac"},
          {"mimeType", "audio/aac"},
          {"artist", ""}}},
        {"every row, not only the first ten",
         {QStringLiteral("--json"), manyFile.fileName()},
         25,
         24,
         {{"title", "Song 24"},
          {"uri", fileUrlDir(dir.path()) + QStringLiteral("song24.mp3")},
          {"mimeType", "audio/mpeg"},
          {"artist", "Band"}}},
        {"content type stands in for the header",
         {QStringLiteral("--json"), QStringLiteral("--content-type"), QStringLiteral("video/x-ms-asf"),
          iniFile.fileName()},
         1,
         0,
         {{"title", ""},
          {"uri", "mmsh://wm.example.com/live"},
          {"mimeType", "video/x-ms-asf"},
          {"artist", ""}}},
        {"no content type",
         {QStringLiteral("--json"), iniFile.fileName()},
         1,
         0,
         {{"title", ""},
          {"uri", "http://wm.example.com/live"},
          {"mimeType", "audio/unknown"},
          {"artist", ""}}},
        {"file URL",
         {QStringLiteral("--json"), dataDir + QStringLiteral("station.asx")},
         4,
         1,
         {{"title", "Intro"},
          {"uri", dataDir + QStringLiteral("clips/intro.wma")},
          {"mimeType", "audio/x-ms-wma"},
          {"artist", ""}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const ToolRun run = plparse(c.args);
        EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
        const QJsonObject json = jsonOf(run);
        EXPECT_EQ(json.value(QStringLiteral("ok")), QJsonValue(true));
        const QJsonArray rows = json.value(QStringLiteral("rows")).toArray();
        ASSERT_EQ(rows.size(), c.rows);
        EXPECT_EQ(rows.at(c.index).toObject(), c.row);
    }
}

TEST(ZuvoPlParse, JsonRowsOfServedPlaylists) {
    HttpTestServer server;
    QFile wpl(dataFile("library.wpl"));
    ASSERT_TRUE(wpl.open(QIODevice::ReadOnly));
    server.setResponse(QStringLiteral("/lists/library.wpl"), 200, wpl.readAll(),
                       {{"Content-Type", "application/vnd.ms-wpl"}});
    server.setResponse(QStringLiteral("/ref.asx"), 200, "[Reference]\nRef1=http://wm.example.com/a\n",
                       {{"Content-Type", "video/x-ms-asf"}});

    ToolRun run = plparse({QStringLiteral("--json"), server.url(QStringLiteral("/lists/library.wpl"))});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    QJsonArray rows = jsonOf(run).value(QStringLiteral("rows")).toArray();
    ASSERT_EQ(rows.size(), 4);
    EXPECT_EQ(rows.at(0).toObject().value(QStringLiteral("uri")).toString(),
              server.url(QStringLiteral("/lists/../Music/Air/Moon Safari/01 La femme d'argent.mp3")));
    EXPECT_EQ(rows.at(3).toObject().value(QStringLiteral("uri")).toString(), QString());

    run = plparse({QStringLiteral("--json"), server.url(QStringLiteral("/ref.asx"))});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    rows = jsonOf(run).value(QStringLiteral("rows")).toArray();
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows.at(0).toObject().value(QStringLiteral("uri")).toString(),
              QStringLiteral("mmsh://wm.example.com/a"));
}

TEST(ZuvoPlParse, FailuresAndUsage) {
    HttpTestServer server;
    server.setResponse(QStringLiteral("/missing"), 404, "<html>gone</html>");
    struct Case {
        const char* name;
        QStringList args;
        int exitCode;
        const char* errorName;
    };
    const Case cases[] = {
        {"404", {QStringLiteral("--json"), server.url(QStringLiteral("/missing"))}, 2, "unknownFormat"},
        {"refused",
         {QStringLiteral("--json"),
          QStringLiteral("http://127.0.0.1:%1/x.m3u").arg(HttpTestServer::unusedPort())},
         2,
         "unknownFormat"},
        {"no format", {QStringLiteral("--json"), dataFile("../CMakeLists.txt")}, 2, "unknownFormat"},
        {"unreadable file", {QStringLiteral("--json"), dataFile("does-not-exist.m3u")}, 2, "readError"},
        {"missing argument", {QStringLiteral("--json")}, 1, "usage"},
        {"two arguments", {QStringLiteral("--json"), dataFile("urls.txt"), dataFile("urls.txt")}, 1, "usage"},
        {"unknown option",
         {QStringLiteral("--json"), QStringLiteral("--jsn"), dataFile("urls.txt")},
         1,
         "usage"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const ToolRun run = plparse(c.args);
        EXPECT_EQ(run.exitCode, c.exitCode) << run.err.toStdString();
        const QJsonObject json = jsonOf(run);
        EXPECT_EQ(json.value(QStringLiteral("ok")), QJsonValue(false));
        const QJsonObject error = json.value(QStringLiteral("error")).toObject();
        EXPECT_EQ(error.value(QStringLiteral("name")).toString(), QString::fromLatin1(c.errorName));
        EXPECT_FALSE(error.value(QStringLiteral("message")).toString().isEmpty());
    }
}

TEST(ZuvoPlParse, ReadableTable) {
    ToolRun run = plparse({dataFile("party.m3u")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QStringList lines = QString::fromUtf8(run.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 7) << run.out.toStdString(); // header, five rows, count
    EXPECT_TRUE(lines.at(0).contains(QStringLiteral("Title")));
    EXPECT_TRUE(lines.at(1).contains(QStringLiteral("Around the World")));
    EXPECT_TRUE(lines.at(1).contains(QStringLiteral("Daft Punk")));
    EXPECT_EQ(lines.at(6), QStringLiteral("5 row(s)"));

    run = plparse({dataFile("../CMakeLists.txt")});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.out.isEmpty());
    EXPECT_TRUE(run.err.contains("error: unknownFormat: Unknown playlist format detected."));
}
