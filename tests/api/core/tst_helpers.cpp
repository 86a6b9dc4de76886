#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <random>
#include <sstream>
#include <tuple>

#include "dbglog.h"
#include "logging.h"
#include "mimetypes.h"
#include "support/logcapture.h"
#include "trcontext.h"
#include "uuid.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance("TstHelpers");

namespace {

TEST(MimeTypes, SchemeDecidesFirstThenThePathSuffix) {
    const char* const other = "x-test/default"; // the caller's default
    const std::pair<const char*, const char*> cases[] = {
        {"HTTP://HOST/DIR/TRACK.MP3", "audio/mpeg"},
        {"http://host/a.mp3?name=b.flac", "audio/mpeg"},
        {"http://host/a.flac#t=b.wav", "audio/flac"},
        {"file:///music/a.m4a", "audio/mp4"},
        {"a.opus", "audio/ogg"},
        {"  C:\\Music\\a.ogg  ", "audio/ogg"},
        {"MMSH://host/a.mp3", "video/x-ms-asf"},
        {"rtsp://host/a.mp3", "application/sdp"},
        {"http://radio.example.mp3", other},
        {"http://host/dir.mp3/track", other},
        {"http://host/a.mp3.part", other},
        {"", other},
        {"mp3", other},
        {"mmsx://host/a", other},
        {"1x://radio.example.mp3", "audio/mpeg"}, // a scheme starts with a letter: a plain path
        {"x-b.c+d2://radio.example.mp3", other},  // then letters, digits, '-', '.' and '+'
    };
    for (const auto& [uri, expected] : cases)
        EXPECT_EQ(MimeTypes::URIToMimeType(QString::fromUtf8(uri), QLatin1String(other)),
                  QLatin1String(expected))
            << uri;
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
        {"A::operator const char*()::<lambda()>", "A"},
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
    std::mt19937 random(12345);
    for (int round = 0; round < 2000; ++round) {
        QByteArray input(round % 40, 'a');
        for (char& c : input)
            c = alphabet[random() % (sizeof(alphabet) - 1)];
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

// Logs through each scope macro, changing the level inside the last scope;
// returns the signature the lines carry.
QString traced(log4cplus::LogLevel relevel) {
    {
        dbglog_scopedFunctionArgs(logger, "name: " << QStringLiteral("Grüße") << " n: " << counted());
        LOG4CPLUS_DEBUG(logger, "playing");
    }
    dbglog_enterFunction(logger, "n: " << counted());
    {
        dbglog_scopedFunction(logger);
        logger.setLogLevel(relevel);
    }
    return QString::fromLatin1(Q_FUNC_INFO);
}

// Enter and Leave lines at TRACE (no Leave after dbglog_enterFunction); a
// scope writes both or neither, by the level seen on entry; arguments are not
// evaluated when TRACE is off.
TEST(ScopeLogger, WritesEnterAndLeaveWithTheSignatureAtTraceOnly) {
    LogCapture capture;
    const QString sig = traced(log4cplus::DEBUG_LOG_LEVEL);
    g_evaluations = 0;
    traced(log4cplus::TRACE_LOG_LEVEL);
    QStringList mine;
    for (const LogCapture::Entry& entry : capture.entries())
        mine += entry.logger == QLatin1String("TstHelpers") ? QStringList(entry.message) : QStringList();
    EXPECT_EQ(mine, QStringList({"Enter " + sig + " name: Grüße n: 42", "playing", "Leave " + sig,
                                 "Enter " + sig + " n: 42", "Enter " + sig, "Leave " + sig, "playing"}));
    EXPECT_EQ(capture.entries().first().level, log4cplus::TRACE_LOG_LEVEL);
    EXPECT_EQ(g_evaluations, 0);
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
    ASSERT_TRUE(
        file.open(QIODevice::WriteOnly) &&
        file.write("log4cplus.rootLogger=ERROR, null\nlog4cplus.appender.null=log4cplus::NullAppender\n"
                   "log4cplus.logger.TstHelpers.FromFile=TRACE\n") > 0);
    file.close();
    log4cplus::Logger fromFile = log4cplus::Logger::getInstance("TstHelpers.FromFile");
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    const auto initFrom = [](const QString& file) { // twice: still one appender
        file.isNull() ? qunsetenv(ZUVO_LOG_CONFIG_ENV)
                      : qputenv(ZUVO_LOG_CONFIG_ENV, QFile::encodeName(file));
        zuvoInitLogging();
        zuvoInitLogging();
    };
    initFrom(path);
    EXPECT_EQ(std::make_tuple(fromFile.getLogLevel(), root.getLogLevel(), root.getAllAppenders().size()),
              std::make_tuple(log4cplus::TRACE_LOG_LEVEL, log4cplus::ERROR_LOG_LEVEL, size_t(1)));
    initFrom(QString());
    EXPECT_EQ(fromFile.getLogLevel(), log4cplus::NOT_SET_LOG_LEVEL);
    expectDefaultConfiguration();
    const QString missing = dir.filePath(QStringLiteral("missing.properties"));
    initFrom(missing);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(zuvoInitLogging(missing));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("cannot read log configuration file"),
              std::string::npos);
    expectDefaultConfiguration();

    // The shipped example loads.
    root.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
    ASSERT_TRUE(zuvoInitLogging(QStringLiteral(ZUVO_EXAMPLES_DIR "/log4cplus.properties")));
    expectDefaultConfiguration(false);
    saved.isNull() ? qunsetenv(ZUVO_LOG_CONFIG_ENV) : qputenv(ZUVO_LOG_CONFIG_ENV, saved);
    zuvoInitLogging();
}

} // namespace
