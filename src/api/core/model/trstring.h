#pragma once

#include <QByteArray>
#include <QChar>
#include <QList>
#include <QString>

#include "trcontext.h"

// One argument of a translatable text, substituted for the next %N marker.
class TrArg {
public:
    TrArg(int value, int fieldWidth = 0, int base = 10, const QChar& fill = QLatin1Char(' '));
    TrArg(qint64 value, int fieldWidth = 0, int base = 10, const QChar& fill = QLatin1Char(' '));
    TrArg(const QString& value, int fieldWidth = 0, const QChar& fill = QLatin1Char(' '));

    // text.arg(...) with this argument.
    QString applyTo(const QString& text) const;

private:
    QString m_string;
    qint64 m_number = 0;
    bool m_isNumber = false;
    int m_fieldWidth = 0;
    int m_base = 10;
    QChar m_fill;
};

// A source text together with the translation context it belongs to.
struct TrCharData {
    QByteArray context;
    const char* source = nullptr;
};

// Marks a literal as translatable in the context of the enclosing function
// (its class scope, see trExtractContext).
#define ZUVO_TR(text) (TrCharData{trExtractContext(Q_FUNC_INFO), text})

// Translatable text: a source text, its translation context and %N arguments.
// toString() translates through QCoreApplication::translate (the source text
// when no translator is installed) and then substitutes the arguments.
class TrString {
public:
    TrString() = default;
    // A source text without context.
    TrString(const char* source);
    // A text that is already final (not translated again).
    TrString(const QString& text);
    TrString(const TrCharData& data, const QList<TrArg>& args = {});

    QString toString() const;
    QString source() const { return m_source; }
    QByteArray context() const { return m_context; }
    bool isEmpty() const { return m_source.isEmpty(); }

private:
    QString m_source;
    QByteArray m_context;
    QList<TrArg> m_args;
    bool m_translate = false;
};
