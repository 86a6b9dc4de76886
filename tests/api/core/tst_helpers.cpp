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

// ---------------------------------------------------------------- MIME types

TEST(MimeTypes, MapsUriByScheme_ThenPathSuffix) {
    const QString fallback = QStringLiteral("x-test/default");
    const struct {
        const char* uri;
        const char* expected; // nullptr: the default type
    } cases[] = {
        {"http://host/a.mp3", "audio/mpeg"},
        {"HTTP://HOST/DIR/TRACK.MP3", "audio/mpeg"},
        {"http://host/a.mp3?name=b.flac", "audio/mpeg"},
        {"http://host/a.flac#t=b.wav", "audio/flac"},
        {"https://host/a.aac", "audio/aac"},
        {"file:///music/a.m4a", "audio/mp4"},
        {"/music/a.mp4", "audio/mp4"},
        {"a.ogg", "audio/ogg"},
        {"a.opus", "audio/ogg"},
        {"a.wav", "audio/wav"},
        {"http://host/a.wma", "audio/x-ms-wma"},
        {"http://host/a.asf", "video/x-ms-asf"},
        {"C:\\Music\\a.MP3", "audio/mpeg"},
        {"  http://host/a.mp3  ", "audio/mpeg"},
        {"mms://host/live", "video/x-ms-asf"},
        {"MMSH://host/a.mp3", "video/x-ms-asf"},
        {"rtsp://host/a.mp3", "application/sdp"},
        {"http://host/stream?format=mp3", nullptr},
        {"http://radio.example.mp3", nullptr},
        {"http://host/dir.mp3/track", nullptr},
        {"http://host/a.mp3.part", nullptr},
        {"http://host/", nullptr},
        {"mp3", nullptr},
        {"", nullptr},
        {"mmsx://host/a", nullptr},
    };
    for (const auto& c : cases) {
        const QString expected = c.expected ? QString::fromLatin1(c.expected) : fallback;
        EXPECT_EQ(MimeTypes::URIToMimeType(QString::fromUtf8(c.uri), fallback), expected) << c.uri;
    }
    EXPECT_EQ(MimeTypes::URIToMimeType(QStringLiteral("x.unknownsuffix"), MimeTypes::Audio::unknown()),
              QStringLiteral("audio/unknown"));
}

// ------------------------------------------------------- translation context

TEST(TrExtractContext, TakesTheScopeOfTheFunctionName) {
    const struct {
        const char* signature;
        const char* context;
    } cases[] = {
        {"void PlayLogicBase::pause(const CMSetDataRequest&)", "PlayLogicBase"},
        {"CMReply<int> StreamerController::play(const ZuvoRoles&, bool)", "StreamerController"},
        {"void A::B::f()", "A::B"},
        {"QMap<QString, QList<int> > Foo::bar(const std::function<void(int)>&) const", "Foo"},
        {"std::function<void(Foo::X)> Foo::make(int (*)(int))", "Foo"},
        {"const QString& Ns::Foo::name() const", "Ns::Foo"},
        {"static CMActivateNode* CMActivateNode::create(CMNodes*, const CMPath&)", "CMActivateNode"},
        {"Foo::Foo(QObject*)", "Foo"},
        {"Foo::~Foo()", "Foo"},
        {"void f(int)", "f"},
        {"bool Foo::operator<(const Foo&) const", "Foo"},
        {"void Foo::operator()(int)", "Foo"},
        {"Foo::operator QString() const", "Foo"},
        {"A::operator B::C() const", "A"},
        {"QDebug operator<<(QDebug, const CMPath&)", "operator<<"},
        {"StreamerPlayLogic::playInternal(const ZuvoPlayLogicPlayArgs&)::<lambda(const CMVoidReply&)>",
         "StreamerPlayLogic"},
        {"void Foo<T>::bar() [with T = int]", "Foo"},
        {"void Outer<Inner<int> >::Nested::run()", "Outer::Nested"},
        {"void {anonymous}::Helper::run()", "{anonymous}::Helper"},
        {"void (anonymous namespace)::Helper::run()", "(anonymous namespace)::Helper"},
        {"void ::f()", "f"},
        {"A::B::f", "A::B"},
        {"", ""},
        {"::", ""},
        {">>>>::(", ""},
        {"operator", "operator"},
        {"void Foo::operator", "Foo"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(trExtractContext(c.signature), QByteArray(c.context)) << c.signature;
    EXPECT_TRUE(trExtractContext(nullptr).isEmpty());
}

TEST(TrExtractContext, AnyInputGivesATrimmedPartOfIt) {
    // Garbage built from the characters the parser treats specially.
    const char alphabet[] = "ab:<>()*& operator{}[]~=,\t";
    quint32 state = 12345;
    for (int round = 0; round < 2000; ++round) {
        QByteArray input;
        const int length = round % 40;
        for (int i = 0; i < length; ++i) {
            state = state * 1103515245u + 12345u;
            input.append(alphabet[(state >> 16) % (sizeof(alphabet) - 1)]);
        }
        const QByteArray context = trExtractContext(input.constData());
        EXPECT_LE(context.size(), input.size()) << input.constData();
        EXPECT_EQ(context, context.trimmed()) << input.constData();
    }
}

// ---------------------------------------------------------------------- uuid

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

// -------------------------------------------------------------- scope logger

int g_argsEvaluations = 0;

int countedArgument() {
    ++g_argsEvaluations;
    return 42;
}

class TracedPlayer {
public:
    QList<int> play(const QString& name, bool paused) {
        dbglog_scopedFunction(logger);
        signature = Q_FUNC_INFO;
        LOG4CPLUS_DEBUG(logger, "playing " << name << " paused " << paused);
        return {};
    }

    void seek(qint64 position, const QString& name) {
        dbglog_scopedFunctionArgs(logger, "position: " << position << " name: " << name
                                                       << " n: " << countedArgument());
        signature = Q_FUNC_INFO;
    }

    void ping() {
        dbglog_enterFunction(logger, "count: " << countedArgument());
        signature = Q_FUNC_INFO;
        LOG4CPLUS_DEBUG(logger, "pong");
    }

    // Changes the logger's level inside the scope.
    void relevel(log4cplus::LogLevel level) {
        dbglog_scopedFunction(logger);
        signature = Q_FUNC_INFO;
        logger.setLogLevel(level);
    }

    std::string signature;
};

QString enterLine(const std::string& signature) {
    return QStringLiteral("Enter ") + QString::fromStdString(signature);
}
QString leaveLine(const std::string& signature) {
    return QStringLiteral("Leave ") + QString::fromStdString(signature);
}

TEST(ScopeLogger, WritesEnterAndLeaveWithTheFullSignatureAtTrace) {
    LogCapture capture;
    TracedPlayer player;
    player.play(QStringLiteral("a"), true);

    EXPECT_EQ(capture.messagesOf(QStringLiteral("TstHelpers")),
              QStringList({enterLine(player.signature), QStringLiteral("playing a paused 1"),
                           leaveLine(player.signature)}));
    const QList<LogCapture::Entry> entries = capture.entries();
    ASSERT_EQ(entries.size(), 3);
    EXPECT_EQ(entries.first().level, log4cplus::TRACE_LOG_LEVEL);
    EXPECT_EQ(entries.last().level, log4cplus::TRACE_LOG_LEVEL);
}

TEST(ScopeLogger, ArgumentsFollowTheSignatureAndEnterOnlyWritesNoLeave) {
    LogCapture capture;
    TracedPlayer player;
    g_argsEvaluations = 0;

    player.seek(-5, QStringLiteral("Grüße"));
    EXPECT_EQ(capture.messagesOf(QStringLiteral("TstHelpers")),
              QStringList({enterLine(player.signature) + QStringLiteral(" position: -5 name: Grüße n: 42"),
                           leaveLine(player.signature)}));

    capture.clear();
    player.ping();
    EXPECT_EQ(
        capture.messagesOf(QStringLiteral("TstHelpers")),
        QStringList({enterLine(player.signature) + QStringLiteral(" count: 42"), QStringLiteral("pong")}));
    EXPECT_EQ(g_argsEvaluations, 2);
}

TEST(ScopeLogger, WritesAndEvaluatesNothingWhenTraceIsDisabled) {
    LogCapture capture;
    logger.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
    TracedPlayer player;
    g_argsEvaluations = 0;

    player.play(QStringLiteral("a"), false);
    player.seek(1, QStringLiteral("b"));
    player.ping();

    EXPECT_EQ(capture.messagesOf(QStringLiteral("TstHelpers")),
              QStringList({QStringLiteral("playing a paused 0"), QStringLiteral("pong")}));
    EXPECT_EQ(g_argsEvaluations, 0);
}

TEST(ScopeLogger, LeaveFollowsTheLevelSeenOnEntry) {
    LogCapture capture;
    TracedPlayer player;

    player.relevel(log4cplus::DEBUG_LOG_LEVEL); // TRACE on entry, off on exit
    EXPECT_EQ(capture.messagesOf(QStringLiteral("TstHelpers")),
              QStringList({enterLine(player.signature), leaveLine(player.signature)}));

    capture.clear();
    player.relevel(log4cplus::TRACE_LOG_LEVEL); // off on entry, TRACE on exit
    EXPECT_TRUE(capture.messagesOf(QStringLiteral("TstHelpers")).isEmpty())
        << capture.toString().toStdString();
}

// ---------------------------------------------------------- stream operators

TEST(LogStreamOperators, PrintQtTypesAsUtf8Text) {
    std::ostringstream stream;
    stream << QStringLiteral("Grüße") << '|' << QByteArray("raw\x01", 4) << '|'
           << QStringList({QStringLiteral("a"), QStringLiteral("b")}) << '|'
           << QVariant(QVariantHash({{QStringLiteral("n"), 1}, {QStringLiteral("s"), QStringLiteral("x")}}))
           << '|' << QVariant();
    EXPECT_EQ(stream.str(), "Gr\xc3\xbc\xc3\x9f"
                            "e|raw\x01|[\"a\", \"b\"]|{\"n\": 1, \"s\": \"x\"}|null");
}

// ------------------------------------------------------------ initialisation

// Sets ZUVO_LOG_CONFIG for a test and restores the variable and the logging
// configuration of the test program afterwards.
class LogConfigEnvironment {
public:
    LogConfigEnvironment()
        : m_wasSet(qEnvironmentVariableIsSet(ZUVO_LOG_CONFIG_ENV))
        , m_value(qgetenv(ZUVO_LOG_CONFIG_ENV)) {}
    ~LogConfigEnvironment() {
        if (m_wasSet)
            qputenv(ZUVO_LOG_CONFIG_ENV, m_value);
        else
            qunsetenv(ZUVO_LOG_CONFIG_ENV);
        zuvoInitLogging();
    }
    void set(const QString& path) { qputenv(ZUVO_LOG_CONFIG_ENV, QFile::encodeName(path)); }
    void unset() { qunsetenv(ZUVO_LOG_CONFIG_ENV); }

private:
    bool m_wasSet;
    QByteArray m_value;
};

void expectDefaultConfiguration() {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    EXPECT_EQ(root.getLogLevel(), log4cplus::WARN_LOG_LEVEL);
    const log4cplus::SharedAppenderPtrList appenders = root.getAllAppenders();
    ASSERT_EQ(appenders.size(), 1u);
    EXPECT_NE(dynamic_cast<log4cplus::ConsoleAppender*>(appenders.front().get()), nullptr);
    EXPECT_EQ(appenders.front()->getThreshold(), log4cplus::WARN_LOG_LEVEL);
}

TEST(ZuvoInitLogging, ReadsTheFileNamedByTheEnvironmentElseLogsWarningsToStderr) {
    LogConfigEnvironment environment;
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("log.properties"));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("log4cplus.rootLogger=ERROR, null\n"
               "log4cplus.appender.null=log4cplus::NullAppender\n"
               "log4cplus.logger.TstHelpers.FromFile=TRACE\n");
    file.close();
    log4cplus::Logger fromFile = log4cplus::Logger::getInstance("TstHelpers.FromFile");

    environment.set(path);
    zuvoInitLogging();
    zuvoInitLogging(); // idempotent: still one appender
    EXPECT_EQ(fromFile.getLogLevel(), log4cplus::TRACE_LOG_LEVEL);
    EXPECT_EQ(log4cplus::Logger::getRoot().getLogLevel(), log4cplus::ERROR_LOG_LEVEL);
    EXPECT_EQ(log4cplus::Logger::getRoot().getAllAppenders().size(), 1u);

    environment.unset();
    zuvoInitLogging();
    zuvoInitLogging();
    EXPECT_EQ(fromFile.getLogLevel(), log4cplus::NOT_SET_LOG_LEVEL);
    expectDefaultConfiguration();

    environment.set(dir.filePath(QStringLiteral("missing.properties")));
    zuvoInitLogging();
    expectDefaultConfiguration();
    EXPECT_FALSE(zuvoInitLogging(dir.filePath(QStringLiteral("missing.properties"))));
    expectDefaultConfiguration();
}

TEST(ZuvoInitLogging, ShippedExampleConfigurationLoads) {
    LogConfigEnvironment environment;
    const QString example = QFileInfo(QStringLiteral(__FILE__))
                                .dir()
                                .filePath(QStringLiteral("../../../examples/log4cplus.properties"));
    ASSERT_TRUE(QFileInfo::exists(example)) << example.toStdString();

    log4cplus::Logger::getRoot().setLogLevel(log4cplus::TRACE_LOG_LEVEL);
    ASSERT_TRUE(zuvoInitLogging(example));
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    EXPECT_EQ(root.getLogLevel(), log4cplus::WARN_LOG_LEVEL);
    const log4cplus::SharedAppenderPtrList appenders = root.getAllAppenders();
    ASSERT_EQ(appenders.size(), 1u);
    EXPECT_NE(dynamic_cast<log4cplus::ConsoleAppender*>(appenders.front().get()), nullptr);
}

} // namespace
