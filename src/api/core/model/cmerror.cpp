#include "cmerror.h"

QString CMError::DefaultName() {
    return QStringLiteral("GeneralError");
}

TrString CMError::DefaultTitle() {
    return TrString(TrCharData{QByteArrayLiteral("CMError"), "Error"});
}

CMError::CMError(const TrString& message)
    : CMError(DefaultName(), message) {}

CMError::CMError(const QString& name, const TrString& message)
    : CMError(name, DefaultTitle().toString(), message.toString()) {}

CMError::CMError(const QString& name, const QString& title, const QString& message) {
    m_hash.insert(Name(), name);
    m_hash.insert(Title(), title);
    m_hash.insert(Message(), message);
}

std::ostream& operator<<(std::ostream& stream, const CMError& error) {
    return stream << "CMError(" << error.name().toUtf8().constData() << ", \""
                  << error.title().toUtf8().constData() << "\", \"" << error.message().toUtf8().constData()
                  << "\")";
}

QDebug operator<<(QDebug debug, const CMError& error) {
    QDebugStateSaver saver(debug);
    debug.nospace() << "CMError(" << error.name() << ", " << error.title() << ", " << error.message() << ')';
    return debug;
}
