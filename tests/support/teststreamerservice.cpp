#include "teststreamerservice.h"

#include <utility>

#include "model/cmactivatenode.h"
#include "model/cmnodes.h"
#include "model/cmvaluenode.h"
#include "support/eventloop.h"

namespace {

// The command paths, in the order of TestStreamerService::Command.
QList<CMPath> commandPaths() {
    const CMPath prefix = ZuvoStreamerDefaultPrefixPath();
    return {prefix + ZuvoStreamerPlayPath(),           prefix + ZuvoStreamerSetNextMediaPath(),
            prefix + ZuvoStreamerClearNextMediaPath(), prefix + ZuvoStreamerPausePath(),
            prefix + ZuvoStreamerResumePath(),         prefix + ZuvoStreamerStopPath(),
            prefix + ZuvoStreamerSeekPath(),           prefix + ZuvoStreamerSetAttributesPath()};
}

} // namespace

TestStreamerService::TestStreamerService(CMNodes* nodes) {
    for (const CMPath& path : commandPaths()) {
        CMActivateNode* node = CMActivateNode::create(nodes, path);
        node->setParent(this);
        node->setInvoke(this, &TestStreamerService::onInvoked, Qt::QueuedConnection);
    }
    const CMPath data = ZuvoStreamerDefaultPrefixPath() + ZuvoStreamerDataPath();
    for (const CMPath& path :
         {data, data + ZuvoPlayLogicPlayTimePath(), data + ZuvoPlayLogicBufferingLevelPath(),
          data + ZuvoPlayLogicBufferBytesPath()}) {
        CMValueNode* node = CMValueNode::create(nodes, path);
        node->setParent(this);
        node->setReadOnly(true);
        m_values.append(node);
    }
}

TestStreamerService::~TestStreamerService() {
    m_values.clear(); // the published values leave with their nodes, unchanged
    reset();
}

void TestStreamerService::reset() {
    for (const auto& held : std::exchange(m_held, {}))
        held.second.reply().setError(
            CMError(QStringLiteral("ServiceGone"), TrString("Streamer service gone")));
    m_script.clear();
    m_invocations.clear();
    m_nextPlaybackId = 1;
    for (const Value which : {Data, PlayTime, BufferingLevel, BufferedBytes})
        setValue(which, QVariantHash());
}

void TestStreamerService::onInvoked(const CMSetDataRequest& request) {
    const Command command = Command(commandPaths().indexOf(request.path().withoutParams()));
    m_invocations.append(Invocation{command, request.data()});
    Answer answer = [this, command](const CMSetDataRequest& r) {
        const bool grantsId = command == Command::play || command == Command::setNextMedia;
        r.reply().setValue(grantsId ? QVariant(m_nextPlaybackId++) : QVariant());
    };
    for (int i = 0; i < m_script.size(); ++i) {
        if (m_script.at(i).first == command) {
            answer = m_script.takeAt(i).second;
            break;
        }
    }
    answer(request);
    Q_EMIT invoked(command, request.data());
}

QList<TestStreamerService::Invocation> TestStreamerService::invocations(Command command) const {
    QList<Invocation> result;
    for (const Invocation& invocation : m_invocations) {
        if (invocation.command == command)
            result.append(invocation);
    }
    return result;
}

bool TestStreamerService::waitForCount(Command command, int n, int timeoutMs) const {
    return zuvotest::waitUntil([this, command, n] { return count(command) >= n; }, timeoutMs);
}

void TestStreamerService::failNext(Command command, const CMError& error) {
    m_script.append({command, [error](const CMSetDataRequest& r) { r.reply().setError(error); }});
}

void TestStreamerService::holdNext(Command command) {
    m_script.append({command, [this, command](const CMSetDataRequest& r) { m_held.append({command, r}); }});
}

bool TestStreamerService::releaseHeld(Command command, const QVariant& value, const CMError& error) {
    for (int i = 0; i < m_held.size(); ++i) {
        if (m_held.at(i).first != command)
            continue;
        const CMReply<QVariant> reply = m_held.takeAt(i).second.reply();
        error.isEmpty() ? reply.setValue(value) : reply.setError(error);
        return true;
    }
    return false;
}

void TestStreamerService::setValue(Value which, const QVariantHash& value) {
    if (CMValueNode* node = m_values.value(which))
        node->setValue(ZuvoValue(value));
}

ZuvoStreamerData TestStreamerService::data() const {
    const CMValueNode* node = m_values.value(Data);
    return node ? ZuvoStreamerData(node->value().__hash()) : ZuvoStreamerData();
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
