#include "teststreamerservice.h"

#include <functional>
#include <utility>

#include "model/cmactivatenode.h"
#include "model/cmnodes.h"
#include "model/cmvaluenode.h"
#include "support/eventloop.h"

namespace {

// Receiver of one command node: hands each invocation to the service.
class Endpoint : public QObject {
public:
    Endpoint(QObject* parent, std::function<void(const CMSetDataRequest&)> handler)
        : QObject(parent)
        , m_handler(std::move(handler)) {}
    void invoked(const CMSetDataRequest& request) { m_handler(request); }

private:
    std::function<void(const CMSetDataRequest&)> m_handler;
};

} // namespace

QList<TestStreamerService::Command> TestStreamerService::allCommands() {
    return {Command::play,   Command::setNextMedia, Command::clearNextMedia, Command::pause,
            Command::resume, Command::stop,         Command::seek,           Command::setAttributes};
}

CMPath TestStreamerService::relativePath(Command command) {
    switch (command) {
    case Command::play:
        return ZuvoStreamerPlayPath();
    case Command::setNextMedia:
        return ZuvoStreamerSetNextMediaPath();
    case Command::clearNextMedia:
        return ZuvoStreamerClearNextMediaPath();
    case Command::pause:
        return ZuvoStreamerPausePath();
    case Command::resume:
        return ZuvoStreamerResumePath();
    case Command::stop:
        return ZuvoStreamerStopPath();
    case Command::seek:
        return ZuvoStreamerSeekPath();
    case Command::setAttributes:
        return ZuvoStreamerSetAttributesPath();
    }
    return CMPath();
}

QString TestStreamerService::name(Command command) {
    return relativePath(command).lastSegment();
}

TestStreamerService::TestStreamerService(CMNodes* nodes, const CMPath& prefix)
    : m_prefix(prefix) {
    for (const Command command : allCommands()) {
        auto* endpoint = new Endpoint(
            this, [this, command](const CMSetDataRequest& request) { handle(command, request); });
        CMActivateNode* node = CMActivateNode::create(nodes, path(command));
        node->setParent(this);
        node->setInvoke(endpoint, &Endpoint::invoked, Qt::QueuedConnection);
    }
    m_data = createValue(nodes, dataPath());
    m_playTime = createValue(nodes, playTimePath());
    m_bufferingLevel = createValue(nodes, bufferingLevelPath());
    m_bufferedBytes = createValue(nodes, bufferedBytesPath());
}

TestStreamerService::~TestStreamerService() {
    failAllHeld();
}

void TestStreamerService::failAllHeld() {
    const QList<Held> held = std::exchange(m_held, QList<Held>());
    for (const Held& h : held)
        h.request.reply().setError(
            CMError(QStringLiteral("ServiceGone"), TrString("Streamer service gone or reset")));
}

void TestStreamerService::reset() {
    failAllHeld();
    m_script.clear();
    m_invocations.clear();
    m_nextPlaybackId = 1;
    for (CMValueNode* node :
         {m_data.data(), m_playTime.data(), m_bufferingLevel.data(), m_bufferedBytes.data()})
        setValue(node, ZuvoValue());
}

CMPath TestStreamerService::dataPath() const {
    return m_prefix + ZuvoStreamerDataPath();
}

CMPath TestStreamerService::playTimePath() const {
    return dataPath() + ZuvoPlayLogicPlayTimePath();
}

CMPath TestStreamerService::bufferingLevelPath() const {
    return dataPath() + ZuvoPlayLogicBufferingLevelPath();
}

CMPath TestStreamerService::bufferedBytesPath() const {
    return dataPath() + ZuvoPlayLogicBufferBytesPath();
}

CMValueNode* TestStreamerService::createValue(CMNodes* nodes, const CMPath& path) {
    CMValueNode* node = CMValueNode::create(nodes, path);
    node->setParent(this);
    node->setReadOnly(true);
    return node;
}

QList<TestStreamerService::Invocation> TestStreamerService::invocations(Command command) const {
    QList<Invocation> result;
    for (const Invocation& invocation : m_invocations) {
        if (invocation.command == command)
            result.append(invocation);
    }
    return result;
}

QList<TestStreamerService::Command> TestStreamerService::commands() const {
    QList<Command> result;
    for (const Invocation& invocation : m_invocations)
        result.append(invocation.command);
    return result;
}

int TestStreamerService::count(Command command) const {
    return invocations(command).size();
}

TestStreamerService::Invocation TestStreamerService::last(Command command) const {
    const QList<Invocation> list = invocations(command);
    return list.isEmpty() ? Invocation() : list.last();
}

bool TestStreamerService::waitForCount(Command command, int n, int timeoutMs) const {
    return zuvotest::waitUntil([this, command, n] { return count(command) >= n; }, timeoutMs);
}

void TestStreamerService::answerNext(Command command, const QVariant& value) {
    m_script.append({command, Answer{Answer::Value, value, CMError()}});
}

void TestStreamerService::failNext(Command command, const CMError& error) {
    m_script.append({command, Answer{Answer::Error, QVariant(), error}});
}

void TestStreamerService::holdNext(Command command) {
    m_script.append({command, Answer{Answer::Hold, QVariant(), CMError()}});
}

TestStreamerService::Answer TestStreamerService::takeAnswer(Command command) {
    for (int i = 0; i < m_script.size(); ++i) {
        if (m_script.at(i).first == command)
            return m_script.takeAt(i).second;
    }
    Answer answer;
    if (command == Command::play || command == Command::setNextMedia)
        answer.value = m_nextPlaybackId++;
    return answer;
}

void TestStreamerService::handle(Command command, const CMSetDataRequest& request) {
    m_invocations.append(Invocation{command, request.data(), request});
    const Answer answer = takeAnswer(command);
    switch (answer.kind) {
    case Answer::Value:
        request.reply().setValue(answer.value);
        break;
    case Answer::Error:
        request.reply().setError(answer.error);
        break;
    case Answer::Hold:
        m_held.append(Held{command, request});
        break;
    }
    Q_EMIT invoked(command, request.data());
}

int TestStreamerService::heldIndex(Command command) const {
    for (int i = 0; i < m_held.size(); ++i) {
        if (m_held.at(i).command == command)
            return i;
    }
    return -1;
}

int TestStreamerService::heldCount(Command command) const {
    int n = 0;
    for (const Held& held : m_held)
        n += held.command == command ? 1 : 0;
    return n;
}

bool TestStreamerService::releaseHeld(Command command, const QVariant& value) {
    const int index = heldIndex(command);
    if (index < 0)
        return false;
    m_held.takeAt(index).request.reply().setValue(value);
    return true;
}

bool TestStreamerService::failHeld(Command command, const CMError& error) {
    const int index = heldIndex(command);
    if (index < 0)
        return false;
    m_held.takeAt(index).request.reply().setError(error);
    return true;
}

void TestStreamerService::setValue(CMValueNode* node, const ZuvoValue& value) {
    if (node)
        node->setValue(value);
}

void TestStreamerService::publishData(const ZuvoStreamerData& data) {
    setValue(m_data, ZuvoValue(data.__hash()));
}

void TestStreamerService::publishPlayTime(qint64 ms) {
    ZuvoValue value;
    value.setI64_(ms);
    setValue(m_playTime, value);
}

void TestStreamerService::publishBufferingLevel(double percent) {
    ZuvoValue value;
    value.setDouble_(percent);
    setValue(m_bufferingLevel, value);
}

void TestStreamerService::publishBufferedBytes(qint64 bytes) {
    ZuvoValue value;
    value.setI64_(bytes);
    setValue(m_bufferedBytes, value);
}

ZuvoStreamerData TestStreamerService::data() const {
    return m_data ? ZuvoStreamerData(m_data->value().__hash()) : ZuvoStreamerData();
}

int TestStreamerService::bufferingLevelWatchers() const {
    return m_bufferingLevel ? m_bufferingLevel->watcherCount() : 0;
}

int TestStreamerService::bufferedBytesWatchers() const {
    return m_bufferedBytes ? m_bufferedBytes->watcherCount() : 0;
}

ZuvoStreamerData TestStreamerService::makeData(int playbackId, ZuvoPlayLogicState::Enum state) {
    ZuvoStreamerData data;
    data.setPlaybackId(playbackId);
    data.setState(state);
    return data;
}

ZuvoStreamerData TestStreamerService::restartedData() {
    ZuvoStreamerData data;
    data.setState(ZuvoPlayLogicState::stopped);
    return data;
}

ZuvoError TestStreamerService::makeError(int code, const QString& name, const QString& message) {
    ZuvoError error;
    error.setCode(code);
    error.setName(name);
    error.setMessage(message);
    return error;
}
