// Fuzzes CMPath::fromEncoded. The input holds two texts separated by the
// first NUL byte, each read both as UTF-8 and as raw UTF-16 (which may hold
// lone surrogates). Invariants: a parsed path survives toEncoded() and
// fromEncoded() unchanged, its encoded form is canonical (encoding it again
// gives the same text), and so does the concatenation of two parsed paths.
#include <QString>
#include <cstring>
#include <vector>

#include "fuzzsupport.h"
#include "model/cmpath.h"

namespace {

QString describe(const CMPath& path) {
    QString out = QStringLiteral("encoded \"%1\" segments [").arg(path.toEncoded());
    for (const QString& segment : path.segments())
        out += QLatin1Char('"') + segment + QStringLiteral("\" ");
    return out + QStringLiteral("] params %1 empty %2").arg(path.params().size()).arg(path.isEmpty());
}

void checkRoundTrip(const CMPath& path) {
    const QString encoded = path.toEncoded();
    const CMPath again = CMPath::fromEncoded(encoded);
    if (again != path || qHash(again) != qHash(path))
        zuvofuzz::fail("fromEncoded(toEncoded(p)) != p",
                       describe(path) + QStringLiteral(" -> ") + describe(again));
    if (again.toEncoded() != encoded)
        zuvofuzz::fail("the encoded form is not canonical",
                       encoded + QStringLiteral(" -> ") + again.toEncoded());
    if (path.isEmpty() != encoded.isEmpty() || (!encoded.isEmpty() && !encoded.startsWith(QLatin1Char('/'))))
        zuvofuzz::fail("an encoded path that does not begin with '/'", encoded);
    if (!again.withoutParams().equals(path, CMPath::CompareWithoutParams))
        zuvofuzz::fail("withoutParams() differs after a round trip", encoded);
}

void checkText(const QString& first, const QString& second) {
    const CMPath a = CMPath::fromEncoded(first);
    const CMPath b = CMPath::fromEncoded(second);
    checkRoundTrip(a);
    checkRoundTrip(b);
    const CMPath joined = a + b;
    checkRoundTrip(joined);
    if (!a.isEmpty() && !joined.startsWith(a))
        zuvofuzz::fail("a + b does not start with a", describe(a) + QStringLiteral(" + ") + describe(b));
}

// The bytes as UTF-16 code units, copied to aligned storage.
QString fromUtf16Bytes(const char* bytes, size_t size) {
    std::vector<char16_t> units(size / 2);
    if (!units.empty())
        std::memcpy(units.data(), bytes, units.size() * sizeof(char16_t));
    return QString::fromUtf16(units.data(), int(units.size()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zuvofuzz::setUp();
    const char* bytes = reinterpret_cast<const char*>(data);
    size_t split = 0;
    while (split < size && bytes[split] != '\0')
        ++split;
    const size_t rest = split < size ? split + 1 : size;
    checkText(QString::fromUtf8(bytes, int(split)), QString::fromUtf8(bytes + rest, int(size - rest)));
    checkText(fromUtf16Bytes(bytes, split), fromUtf16Bytes(bytes + rest, size - rest));
    return 0;
}
