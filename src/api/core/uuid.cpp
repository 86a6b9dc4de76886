#include "uuid.h"

#include <QUuid>

QString zuvoGenerateUuid() {
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}
