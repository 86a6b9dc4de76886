#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <sstream>

#include "dbglog.h"
#include "logging.h"
#include "mimetypes.h"
#include "support/logcapture.h"
#include "trcontext.h"
#include "uuid.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance("TstHelpers");

namespace {

TEST(MimeTypes, SchemeDecidesFirstThenThePathSuffix) {
    const QString fallback = QStringLiteral("x-test/default");
    const struct {
        const char* uri;
        const char* expected; // nullptr: the default type
    } cases[] = {
        {"HTTP://HOST/DIR/TRACK.MP3", "audio/mpeg"},
        {"http://host/a.mp3?name=b.flac", "audio/mpeg"},
        {"http://host/a.flac#t=b.wav", "audio/flac"},
        {"https://host/a.aac", "audio/aac"},
        {"file:///music/a.m4a", "audio/mp4"},
        {"a.opus", "audio/ogg"},
        {"/music/a.mp4", "audio/mp4"},
        {"http://host/a.wma", "audio/x-ms-wma"},
        {"  C:\\Music\\a.ogg  ", "audio/ogg"},
        {"MMSH://host/a.mp3", "video/x-ms-asf"},
        {"rtsp://host/a.mp3", "application/sdp"},
        {"http://radio.example.mp3", nullptr},
        {"http://host/dir.mp3/track", nullptr},
        {"http://host/a.mp3.part", nullptr},
        {"", nullptr},
        {"mp3", nullptr},
        {"mmsx://host/a", nullptr},
        {"1x://radio.example.mp3", "audio/mpeg"}, // a scheme starts with a letter: a plain path
    };
    for (const auto& c : cases) {
        const QString expected = c.expected ? QString::fromLatin1(c.expected) : fallback;
        EXPECT_EQ(MimeTypes::URIToMimeType(QString::fromUtf8(c.uri), fallback), expected) << c.uri;
    }
    EXPECT_EQ(MimeTypes::Audio::unknown(), QStringLiteral("audio/unknown"));
}

TEST(TrExtractContext, TakesTheScopeOfTheFunctionNameAndNeverGrows) {
    const struct {
        const char* signature;
        const char* context;
    } cases[] = {
        {"CMReply<int> StreamerController::play(const ZuvoRoles&, bool)", "StreamerController"},
        {"const QString& A::B::name() const", "A::B"},
        {"QMap<QString, QList<int> > Foo::bar(const std::function<void(int)>&) const", "Foo"},
        {"std::function<void(Foo::X)> Foo::make(int (*)(int))", "Foo"},
        {"void f(int)", "f"},
        {"bool Foo::operator<(const Foo&) const", "Foo"},
        {"void Foo::operator()(int)", "Foo"},
        {"A::operator B::C() const", "A"},
        {"QDebug operator<<(QDebug, const CMPath&)", "operator<<"},
        {"StreamerPlayLogic::playInternal(const ZuvoPlayLogicPlayArgs&)::<lambda(const CMVoidReply&)>",
         "StreamerPlayLogic"},
        {"void Outer<Inner<int> >::Nested::run() [with T = int]", "Outer::Nested"},
        {"void (anonymous namespace)::Helper::run()", "(anonymous namespace)::Helper"},
        {"A::B::f", "A::B"},
        {"::", ""},
        {">>>>::(", ""},
        {"void Foo::operator", "Foo"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(trExtractContext(c.signature), QByteArray(c.context)) << c.signature;
    EXPECT_TRUE(trExtractContext(nullptr).isEmpty());

    // Garbage built from the characters the parser treats specially.
    const char alphabet[] = "ab:<>()*& operator{}[]~=,\t";
    quint32 state = 12345;
    for (int round = 0; round < 2000; ++round) {
        QByteArray input;
        for (int i = 0; i < round % 40; ++i) {
            state = state * 1103515245u + 12345u;
            input.append(alphabet[(state >> 16) % (sizeof(alphabet) - 1)]);
        }
        const QByteArray context = trExtractContext(input.constData());
        EXPECT_TRUE(context.size() <= input.size() && context == context.trimmed()) << input.constData();
    }
}

TEST(ZuvoGenerateUuid, GivesDistinctVersion4UuidsWithoutBraces) {
    const QRegularExpression format(
        QStringLiteral("^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$"));
    QSet<QString> seen;
    for (int i = 0; i < 1000; ++i) {
        const QString uuid = zuvoGenerateUuid();
        ASSERT_TRUE(format.match(uuid).hasMatch()) << uuid.toStdString();
        seen.insert(uuid);
    }
    EXPECT_EQ(seen.size(), 1000);
}

int g_evaluations = 0;
int counted() {
    ++g_evaluations;
    return 42;
}

struct Traced {
    void play(const QString& name) {
        dbglog_scopedFunctionArgs(logger, "name: " << name << " n: " << counted());
        signature = QString::fromLatin1(Q_FUNC_INFO);
        LOG4CPLUS_DEBUG(logger, "playing");
    }
    void ping() {
        dbglog_enterFunction(logger, "n: " << counted());
        signature = QString::fromLatin1(Q_FUNC_INFO);
    }
    void relevel(log4cplus::LogLevel level) { // changes the level inside the scope
        dbglog_scopedFunction(logger);
        signature = QString::fromLatin1(Q_FUNC_INFO);
        logger.setLogLevel(level);
    }
    QString signature;
};

TEST(ScopeLogger, WritesEnterAndLeaveWithTheSignatureAtTraceOnly) {
    LogCapture capture;
    Traced traced;
    const auto lines = [&] {
        QStringList mine;
        for (const LogCapture::Entry& entry : capture.entries())
            mine += entry.logger == QLatin1String("TstHelpers") ? QStringList(entry.message) : QStringList();
        return mine;
    };
    traced.play(QStringLiteral("Grüße"));
    EXPECT_EQ(lines(), QStringList({"Enter " + traced.signature + " name: Grüße n: 42",
                                    QStringLiteral("playing"), "Leave " + traced.signature}));
    EXPECT_EQ(capture.entries().first().level, log4cplus::TRACE_LOG_LEVEL);
    EXPECT_EQ(capture.entries().last().level, log4cplus::TRACE_LOG_LEVEL);
    capture.clear();
    traced.ping();
    EXPECT_EQ(lines(), QStringList({"Enter " + traced.signature + " n: 42"})) << "no Leave";

    // A scope writes both of its lines or neither, by the level seen on entry.
    capture.clear();
    traced.relevel(log4cplus::DEBUG_LOG_LEVEL);
    EXPECT_EQ(lines(), QStringList({"Enter " + traced.signature, "Leave " + traced.signature}));
    capture.clear();
    g_evaluations = 0;
    traced.relevel(log4cplus::TRACE_LOG_LEVEL);
    logger.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
    traced.play(QStringLiteral("a"));
    traced.ping();
    EXPECT_EQ(lines(), QStringList({QStringLiteral("playing")}));
    EXPECT_EQ(g_evaluations, 0) << "arguments are not evaluated when TRACE is off";
}

TEST(LogStreamOperators, PrintQtTypesAsUtf8Text) {
    std::ostringstream stream;
    stream << QStringLiteral("Grüße") << '|' << QByteArray("raw\x01", 4) << '|'
           << QStringList({QStringLiteral("a"), QStringLiteral("b")}) << '|'
           << QVariant(QVariantHash({{QStringLiteral("n"), 1}, {QStringLiteral("s"), QStringLiteral("x")}}))
           << '|' << QVariant();
    EXPECT_EQ(stream.str(), "Gr\xc3\xbc\xc3\x9f"
                            "e|raw\x01|[\"a\", \"b\"]|{\"n\": 1, \"s\": \"x\"}|null");
}

// Warnings and above to one console appender.
void expectDefaultConfiguration(bool withThreshold = true) {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    EXPECT_EQ(root.getLogLevel(), log4cplus::WARN_LOG_LEVEL);
    const log4cplus::SharedAppenderPtrList appenders = root.getAllAppenders();
    ASSERT_EQ(appenders.size(), 1u);
    EXPECT_NE(dynamic_cast<log4cplus::ConsoleAppender*>(appenders.front().get()), nullptr);
    EXPECT_TRUE(!withThreshold || appenders.front()->getThreshold() == log4cplus::WARN_LOG_LEVEL);
}

TEST(ZuvoInitLogging, ReadsTheFileNamedByTheEnvironmentElseLogsWarningsToStderr) {
    const QByteArray saved = qgetenv(ZUVO_LOG_CONFIG_ENV);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("log.properties"));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("log4cplus.rootLogger=ERROR, null\nlog4cplus.appender.null=log4cplus::NullAppender\n"
               "log4cplus.logger.TstHelpers.FromFile=TRACE\n");
    file.close();
    log4cplus::Logger fromFile = log4cplus::Logger::getInstance("TstHelpers.FromFile");

    qputenv(ZUVO_LOG_CONFIG_ENV, QFile::encodeName(path));
    zuvoInitLogging();
    zuvoInitLogging(); // idempotent: still one appender
    EXPECT_EQ(fromFile.getLogLevel(), log4cplus::TRACE_LOG_LEVEL);
    EXPECT_EQ(log4cplus::Logger::getRoot().getLogLevel(), log4cplus::ERROR_LOG_LEVEL);
    EXPECT_EQ(log4cplus::Logger::getRoot().getAllAppenders().size(), 1u);

    qunsetenv(ZUVO_LOG_CONFIG_ENV);
    zuvoInitLogging();
    zuvoInitLogging();
    EXPECT_EQ(fromFile.getLogLevel(), log4cplus::NOT_SET_LOG_LEVEL);
    expectDefaultConfiguration();

    qputenv(ZUVO_LOG_CONFIG_ENV, QFile::encodeName(dir.filePath(QStringLiteral("missing.properties"))));
    zuvoInitLogging();
    expectDefaultConfiguration();
    EXPECT_FALSE(zuvoInitLogging(dir.filePath(QStringLiteral("missing.properties"))));
    expectDefaultConfiguration();

    // The shipped example loads.
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::TRACE_LOG_LEVEL);
    ASSERT_TRUE(zuvoInitLogging(QFileInfo(QStringLiteral(__FILE__))
                                    .dir()
                                    .filePath(QStringLiteral("../../../examples/log4cplus.properties"))));
    expectDefaultConfiguration(false);

    if (saved.isNull())
        qunsetenv(ZUVO_LOG_CONFIG_ENV);
    else
        qputenv(ZUVO_LOG_CONFIG_ENV, saved);
    zuvoInitLogging();
}

} // namespace
