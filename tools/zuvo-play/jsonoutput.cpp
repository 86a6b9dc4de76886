#include "jsonoutput.h"

#include <QJsonDocument>
#include <cstdio>

#include "playsession.h"

namespace {

QJsonObject objectOf(const ZuvoHash& record) {
    return QJsonObject::fromVariantHash(record.__hash());
}

} // namespace

JsonOutput::JsonOutput(PlaySession* session, QObject* parent)
    : QObject(parent)
    , m_session(session) {
    connect(session, &PlaySession::dataChanged, this, [this](const ZuvoPlayLogicData& data) {
        write(QStringLiteral("data"), {{QStringLiteral("state"), ZuvoPlayLogicState::toString(data.state())},
                                       {QStringLiteral("track"), m_session->currentIndex()},
                                       {QStringLiteral("data"), objectOf(data)}});
    });
    connect(session, &PlaySession::playTimeChanged, this, [this](qint64 ms) {
        write(QStringLiteral("playTime"), {{QStringLiteral("ms"), ms}});
    });
    connect(session, &PlaySession::bufferLevelChanged, this, [this](double level) {
        write(QStringLiteral("bufferLevel"), {{QStringLiteral("level"), level}});
    });
    connect(session, &PlaySession::playModeChanged, this, [this](ZuvoPlayerPlayMode::Enum mode) {
        write(QStringLiteral("playMode"), {{QStringLiteral("mode"), ZuvoPlayerPlayMode::toString(mode)}});
    });
    connect(session, &PlaySession::trackChanged, this, [this](int index) {
        const ZuvoRoles item = m_session->items().value(index);
        write(QStringLiteral("track"), {{QStringLiteral("index"), index},
                                        {QStringLiteral("title"), item.title()},
                                        {QStringLiteral("uri"), item.mediaData().activeResource().uri()}});
    });
    connect(session, &PlaySession::streamerCommand, this,
            [this](const QString& command, const QVariant& argument) {
                write(QStringLiteral("command"),
                      {{QStringLiteral("command"), command},
                       {QStringLiteral("argument"), QJsonValue::fromVariant(argument)}});
            });
    connect(session, &PlaySession::playbackReport, this, [this](const ZuvoPlayLogicData& report) {
        write(QStringLiteral("playbackState"),
              {{QStringLiteral("state"), ZuvoPlayLogicState::toString(report.state())},
               {QStringLiteral("error"), report.error()},
               {QStringLiteral("title"), report.trackRoles().title()}});
    });
    connect(session, &PlaySession::notice, this, [this](const ZuvoNotificationDisplayItem& notice) {
        write(QStringLiteral("notice"),
              {{QStringLiteral("title"), notice.title()}, {QStringLiteral("message"), notice.message()}});
    });
    connect(session, &PlaySession::commandFailed, this,
            [this](const QString& command, const QString& message) {
                write(QStringLiteral("error"),
                      {{QStringLiteral("command"), command}, {QStringLiteral("message"), message}});
            });
    connect(session, &PlaySession::finished, this, [this](int exitCode, const QString& message) {
        write(QStringLiteral("end"),
              {{QStringLiteral("exitCode"), exitCode}, {QStringLiteral("message"), message}});
    });
}

void JsonOutput::invalidInput(const QString& input, const QString& reason) {
    write(QStringLiteral("error"), {{QStringLiteral("input"), input}, {QStringLiteral("message"), reason}});
}

void JsonOutput::write(const QString& event, QJsonObject object) {
    if (m_ended)
        return;
    m_ended = event == QLatin1String("end");
    object.insert(QStringLiteral("event"), event);
    const QByteArray line = QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
    fwrite(line.constData(), 1, size_t(line.size()), stdout);
    fflush(stdout);
}
