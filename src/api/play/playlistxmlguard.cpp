#include "playlistxmlguard.h"

#include <QHash>
#include <QSet>
#include <QTextCodec>
#include <cstring>

namespace {

using Guard = PlayListXmlGuard;

// Any size past the limit; sums saturate there.
constexpr qint64 Unbounded = Guard::MaxXmlExpansion + 1;
// Entities nested deeper than this count as unbounded (the reader recurses
// through them too).
constexpr int MaxEntityNesting = 32;
// Longer "&...;" runs are not taken for references.
constexpr int MaxReferenceName = 256;

qint64 saturatedAdd(qint64 a, qint64 b) {
    return qMin(a + b, Unbounded);
}

bool endsName(QChar c) {
    return c.isSpace() || c == QLatin1Char(';') || c == QLatin1Char('&') || c == QLatin1Char('<') ||
           c == QLatin1Char('>') || c == QLatin1Char('"') || c == QLatin1Char('\'');
}

// Calls visit(name, position of "&") for every entity reference "&name;" in
// text from position from on, character references excepted, until visit
// returns false.
template <typename Visit> void forEachReference(const QString& text, int from, Visit visit) {
    for (int amp = text.indexOf(QLatin1Char('&'), from); amp >= 0;
         amp = text.indexOf(QLatin1Char('&'), amp + 1)) {
        const int begin = amp + 1;
        const int limit = qMin(text.size(), begin + MaxReferenceName);
        int end = begin;
        while (end < limit && !endsName(text.at(end)))
            ++end;
        if (end == begin || end == text.size() || text.at(end) != QLatin1Char(';') ||
            text.at(begin) == QLatin1Char('#'))
            continue;
        if (!visit(text.midRef(begin, end - begin), amp))
            return;
    }
}

// The characters a reference to each internal entity of a declaration
// produces, nested references included.
class EntitySizes {
public:
    explicit EntitySizes(const QXmlStreamEntityDeclarations& declarations) {
        for (const QXmlStreamEntityDeclaration& declaration : declarations) {
            // External and unparsed entities are not read; the first
            // declaration of a name binds.
            const QString name = declaration.name().toString();
            if (declaration.systemId().isEmpty() && declaration.notationName().isEmpty() &&
                !m_values.contains(name))
                m_values.insert(name, declaration.value().toString());
        }
    }

    // 0 for a name not declared here (predefined or unknown: no expansion);
    // Unbounded past the limit, for a cycle or for too deep a nesting.
    qint64 size(const QString& name, int nesting = 0) {
        const auto value = m_values.constFind(name);
        if (value == m_values.constEnd())
            return 0;
        const auto known = m_sizes.constFind(name);
        if (known != m_sizes.constEnd())
            return *known;
        if (nesting > MaxEntityNesting || m_open.contains(name))
            return Unbounded;
        m_open.insert(name);
        qint64 total = value->size(); // the references' own text included: an upper bound
        forEachReference(*value, 0, [&](const QStringRef& reference, int) {
            total = saturatedAdd(total, size(reference.toString(), nesting + 1));
            return total < Unbounded;
        });
        m_open.remove(name);
        m_sizes.insert(name, total);
        return total;
    }

private:
    QHash<QString, QString> m_values;
    QHash<QString, qint64> m_sizes;
    QSet<QString> m_open; // being sized: a reference back to one is a cycle
};

// Reads the prolog up to the document type declaration; false when the first
// element, an error or the end comes first. Keeps the declared encoding
// (only the XML declaration's token tells it) in encoding, when given.
bool readToDeclaration(QXmlStreamReader& reader, QString* encoding = nullptr) {
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (token == QXmlStreamReader::StartDocument && encoding)
            *encoding = reader.documentEncoding().toString();
        if (token == QXmlStreamReader::DTD)
            return true;
        if (token == QXmlStreamReader::StartElement)
            return false;
    }
    return false;
}

// The body as text, decoded the way the reader decodes it: by the declared
// encoding, else as UTF-16 when it starts with a UTF-16 byte-order mark or
// "<", else as UTF-8.
QString decoded(const QByteArray& body, const QString& declaredEncoding) {
    QTextCodec* codec =
        declaredEncoding.isEmpty() ? nullptr : QTextCodec::codecForName(declaredEncoding.toLatin1());
    if (!codec) {
        const auto byte = [&body](int i) { return i < body.size() ? uchar(body.at(i)) : 0xffu; };
        const bool utf16 = (byte(0) == 0xfe && byte(1) == 0xff) || (byte(0) == 0xff && byte(1) == 0xfe) ||
                           (byte(0) == '<' && byte(1) == 0) || (byte(0) == 0 && byte(1) == '<');
        codec = QTextCodec::codecForMib(utf16 ? 1015 : 106);
    }
    return codec->toUnicode(body);
}

// Whether body may declare entities. In the encodings that keep ASCII as it
// is, a declaration has the bytes "<!ENTITY"; a body in UTF-16 or UTF-32 has
// a zero byte or a byte-order mark among its first two bytes. Spares almost
// every document a second reading of its prolog.
bool mayDeclareEntities(const QByteArray& body) {
    const bool wide = body.size() >= 2 && (body.at(0) == 0 || body.at(1) == 0 || uchar(body.at(0)) == 0xfe ||
                                           uchar(body.at(0)) == 0xff);
    // memmem: several times faster than QByteArray::contains() on a large body
    static const char declaration[] = "<!ENTITY";
    return wide || memmem(body.constData(), size_t(body.size()), declaration, sizeof(declaration) - 1);
}

// The decoded body up to the first entity reference that takes the
// characters produced by references past MaxXmlExpansion; a null string when
// there is none (or when the body declares no entities).
QString cutBeforeExpansionLimit(const QByteArray& body) {
    if (!mayDeclareEntities(body))
        return QString();
    QXmlStreamReader probe(body);
    QString encoding;
    if (!readToDeclaration(probe, &encoding) || probe.entityDeclarations().isEmpty())
        return QString();
    EntitySizes sizes(probe.entityDeclarations());
    const QString text = decoded(body, encoding);

    // References inside the declaration are sized above, not counted here.
    QXmlStreamReader textProbe;
    textProbe.addData(text);
    if (!readToDeclaration(textProbe))
        return QString(); // not the document the reader reads; its own limit applies
    qint64 produced = 0;
    int cut = -1;
    forEachReference(text, int(textProbe.characterOffset()), [&](const QStringRef& name, int position) {
        produced = saturatedAdd(produced, sizes.size(name.toString()));
        if (produced <= Guard::MaxXmlExpansion)
            return true;
        cut = position;
        return false;
    });
    return cut < 0 ? QString() : text.left(cut);
}

} // namespace

void PlayListXmlGuard::start(QXmlStreamReader& reader, const QByteArray& body) {
    m_depth = 0;
    m_defaultChars = 0;
    const QString cutText = cutBeforeExpansionLimit(body);
    m_cut = !cutText.isNull();
    if (m_cut)
        reader.addData(cutText); // read as decoded text: the declared encoding no longer applies
    else
        reader.addData(body);
}

QXmlStreamReader::TokenType PlayListXmlGuard::readNext(QXmlStreamReader& reader) {
    switch (reader.readNext()) {
    case QXmlStreamReader::StartElement: {
        if (++m_depth > MaxXmlDepth) {
            reader.raiseError(QStringLiteral("Elements nested deeper than %1 levels").arg(MaxXmlDepth));
            break;
        }
        const QXmlStreamAttributes attributes = reader.attributes();
        for (const QXmlStreamAttribute& attribute : attributes) {
            if (attribute.isDefault())
                m_defaultChars += attribute.value().size();
        }
        if (m_defaultChars > MaxXmlExpansion)
            reader.raiseError(
                QStringLiteral("Default attribute values add more than %1 characters").arg(MaxXmlExpansion));
        break;
    }
    case QXmlStreamReader::EndElement:
        --m_depth;
        break;
    default:
        break;
    }
    return reader.tokenType();
}

void PlayListXmlGuard::finish(QXmlStreamReader& reader) const {
    if (m_cut && reader.error() == QXmlStreamReader::PrematureEndOfDocumentError)
        reader.raiseError(
            QStringLiteral("Entity references expand to more than %1 characters").arg(MaxXmlExpansion));
}
