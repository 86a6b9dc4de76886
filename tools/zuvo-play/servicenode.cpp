#include "servicenode.h"

#include "model/cmactivatenode.h"

ServiceNode::ServiceNode(CMNodes* nodes, const CMPath& path, QObject* parent)
    : QObject(parent) {
    CMActivateNode* node = CMActivateNode::create(nodes, path);
    node->setParent(this);
    node->setInvoke(this, &ServiceNode::on_node_invoked, Qt::QueuedConnection);
}

void ServiceNode::on_node_invoked(const CMSetDataRequest& request) {
    request.reply().setValue(QVariant());
    Q_EMIT invoked(request.data());
}
