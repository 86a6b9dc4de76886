#include "trstring.h"

#include <QCoreApplication>

TrArg::TrArg(int value, int fieldWidth, int base, const QChar& fill)
    : TrArg(static_cast<qint64>(value), fieldWidth, base, fill) {}

TrArg::TrArg(qint64 value, int fieldWidth, int base, const QChar& fill)
    : m_number(value)
    , m_isNumber(true)
    , m_fieldWidth(fieldWidth)
    , m_base(base)
    , m_fill(fill) {}

TrArg::TrArg(const QString& value, int fieldWidth, const QChar& fill)
    : m_string(value)
    , m_fieldWidth(fieldWidth)
    , m_fill(fill) {}

QString TrArg::applyTo(const QString& text) const {
    if (m_isNumber)
        return text.arg(m_number, m_fieldWidth, m_base, m_fill);
    return text.arg(m_string, m_fieldWidth, m_fill);
}

TrString::TrString(const char* source)
    : m_source(QString::fromUtf8(source))
    , m_translate(true) {}

TrString::TrString(const QString& text)
    : m_source(text) {}

TrString::TrString(const TrCharData& data, const QList<TrArg>& args)
    : m_source(QString::fromUtf8(data.source))
    , m_context(data.context)
    , m_args(args)
    , m_translate(true) {}

QString TrString::toString() const {
    QString text = m_source;
    if (m_translate && QCoreApplication::instance()) {
        const QByteArray source = m_source.toUtf8();
        text = QCoreApplication::translate(m_context.constData(), source.constData());
    }
    for (const TrArg& arg : m_args)
        text = arg.applyTo(text);
    return text;
}
