#include "testplaylogic.h"

#include <QTimer>

namespace zuvotest {

QVariantHash TestPlayLogic::Call::arguments() const {
    return zuvo_detail::toHash(request.data());
}

TestPlayLogic::TestPlayLogic(CMNodes* nodes, const CMPath& path)
    : PlayLogicBase(nodes, path) {}

QList<TestPlayLogic::Call> TestPlayLogic::callsOf(ZuvoPlayLogicControl::Enum control) const {
    QList<Call> result;
    for (const Call& call : m_calls) {
        if (call.control == control)
            result.append(call);
    }
    return result;
}

void TestPlayLogic::publishState(ZuvoPlayLogicState::Enum state, bool keepActive) {
    ZuvoPlayLogicData published = data();
    published.setState(state);
    published.setKeepActive(keepActive);
    setData(published);
}

QTimer* TestPlayLogic::pingTimer() const {
    return findChild<QTimer*>(QStringLiteral("pingTimeoutTimer"), Qt::FindDirectChildrenOnly);
}

void TestPlayLogic::record(ZuvoPlayLogicControl::Enum control, const CMSetDataRequest& request) {
    m_calls.append(Call{control, request});
    if (m_answer)
        request.reply().setValue(QVariant());
}

void TestPlayLogic::play(const CMSetDataRequest& request) {
    record(ZuvoPlayLogicControl::play, request);
    if (!m_playPublishes)
        return;
    ZuvoPlayLogicData published;
    published.setState(ZuvoPlayLogicState::playing);
    published.setMediaRoles(ZuvoPlayLogicPlayArgs(zuvo_detail::toHash(request.data())).mediaRoles());
    setData(published);
}

void TestPlayLogic::stop(const CMSetDataRequest& request) {
    record(ZuvoPlayLogicControl::stop, request);
    if (m_stopPublishes)
        publishState(ZuvoPlayLogicState::stopped, data().keepActive());
}

void TestPlayLogic::next(const CMSetDataRequest& request) {
    record(ZuvoPlayLogicControl::next, request);
}

} // namespace zuvotest
