// A minimal host application built against the installed ZuvoPlay package:
// it creates a model tree, a control node and sends it a play command
// through the client proxy.
#include <QCoreApplication>
#include <QTimer>
#include <cstdio>

#include "model/cmactivatenode.h"
#include "model/cmnodes.h"
#include "playlogicinterface.h"
#include "zuvoplayversion.h"

namespace {

class Control : public QObject {
public:
    void invoked(const CMSetDataRequest& request) {
        control = ZuvoPlayLogicControlArgs(request.data().toHash()).control();
        request.reply().setValue(QVariant());
    }
    int control = -1;
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    CMRootScope root;
    Control control;
    CMActivateNode::create(root.nodes(), ZuvoPlayerPath() + QStringLiteral("/control"))
        ->setInvoke(&control, &Control::invoked, Qt::QueuedConnection);
    CMReply<QVariant> reply = PlayLogicInterface::playerInstance()->stop(ZuvoPlayLogicStopReason::user);
    reply.onFinished(&app, [](const CMReply<QVariant>&) { QCoreApplication::quit(); });
    QTimer::singleShot(5000, &app, [] { QCoreApplication::exit(1); });
    const int rc = app.exec();
    std::printf("libzuvo_api_play %s: control %d\n", qPrintable(zuvoPlayVersion()), control.control);
    return rc == 0 && control.control == ZuvoPlayLogicControl::stop ? 0 : 1;
}
