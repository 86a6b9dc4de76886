#include "streamerinterface.h"

StreamerInterface::StreamerInterface(QObject* parent)
    : QObject(parent) {}

StreamerInterface::~StreamerInterface() = default;
