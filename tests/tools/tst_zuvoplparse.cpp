#include <QDir>
#include <QProcess>
#include <gtest/gtest.h>
#include <tuple>

#include "support/eventloop.h"
#include "support/httptestserver.h"
#include "support/toolprocess.h"

using zuvotest::HttpTestServer;

// zuvo-plparse run as a process: per command line its exit code and texts its
// output contains ("stdout:" stdout "\nstderr:" stderr). The event loop runs
// meanwhile: the test's HTTP server lives in this process.
TEST(ZuvoPlParse, Runs) {
    HttpTestServer server;
    QByteArray many = "#EXTM3U\n";
    for (int i = 0; i < 25; ++i)
        many += "#EXTINF:1,Band - Song\nsong" + QByteArray::number(i) + ".mp3\n";
    server.setResponse(QStringLiteral("/lists/many.m3u"), 200, many);
    server.setResponse(QStringLiteral("/missing"), 404, "<html>gone</html>");
    const QString data = QStringLiteral(ZUVO_TEST_DATA_DIR "/");
    const QString dataUrl = QStringLiteral("file://") + QDir(data).absolutePath() + QLatin1Char('/');
    const auto url = [&](const char* path) { return server.url(QString::fromLatin1(path)); };
    const QString json = QStringLiteral("--json");
    const QString unknown =
        R"({"error":{"message":"Unknown playlist format detected.","name":"unknownFormat"},"ok":false})";
    const std::tuple<QStringList, int, QStringList> cases[] = {
        // The content type stands in for the header of a local file.
        {{json, "--content-type", "video/x-ms-asf", data + "stream.ini"},
         0,
         {R"({"ok":true,"rows":[{"artist":"","mimeType":"video/x-ms-asf","title":"","uri":"mmsh://wm.example.com/live?MSWMExt=.asf"},)"}},
        {{json, dataUrl + "station.asx"},
         0,
         {R"({"artist":"","mimeType":"audio/x-ms-wma","title":"Intro","uri":")" + dataUrl +
          "clips/intro.wma\"}"}},
        // Every row, not only the ten a play logic looks at.
        {{json, url("/lists/many.m3u")},
         0,
         {R"({"artist":"Band","mimeType":"audio/mpeg","title":"Song","uri":")" + url("/lists/song24.mp3") +
          "\"}]}\n"}},
        {{json, url("/missing")}, 2, {unknown}},
        {{json, data + "does-not-exist.m3u"}, 2, {R"({"error":{"message":"Cannot read )"}},
        {{json}, 1, {R"({"error":{"message":"missing URL-or-FILE","name":"usage"},"ok":false})"}},
        {{json, data + "urls.txt", data + "urls.txt"},
         1,
         {R"("exactly one URL-or-FILE is expected","name":"usage")"}},
        {{json, "--jsn", data + "urls.txt"}, 1, {R"({"error":{"message":"Unknown option)"}},
        {{data + "party.m3u"}, 0, {"Title", "Around the World", "Daft Punk", "\n5 row(s)\n"}},
        {{data + "../CMakeLists.txt"},
         2,
         {"stdout:\nstderr:error: unknownFormat: Unknown playlist format detected.\n"}},
    };
    for (const auto& [args, exitCode, expected] : cases) {
        SCOPED_TRACE(args.join(QLatin1Char(' ')).toStdString());
        QProcess process;
        zuvotest::startTool(process, QStringLiteral(ZUVO_PLPARSE_PATH), args);
        EXPECT_TRUE(process.waitForStarted(10000));
        EXPECT_TRUE(zuvotest::waitUntil([&] { return process.state() == QProcess::NotRunning; }, 60000));
        const QString output = QString::fromUtf8("stdout:" + process.readAllStandardOutput() +
                                                 "\nstderr:" + process.readAllStandardError());
        EXPECT_EQ(process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, exitCode)
            << output.toStdString();
        for (const QString& text : expected)
            EXPECT_TRUE(output.contains(text)) << output.toStdString();
    }
}
