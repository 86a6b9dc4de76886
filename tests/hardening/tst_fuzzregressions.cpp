// Inputs with which the fuzz targets (fuzz/) found faults, kept as cases so
// that the faults stay fixed.

#include <gtest/gtest.h>
#include <vector>

#include "model/cmpath.h"

namespace {

// Percent-escapes of a NUL or of U+FEFF (whose UTF-8 form is a byte-order
// mark) were decoded to nothing: "/%00" and "/%EF%BB%BF" became a path with
// one empty segment, whose encoded form "/" reads back as the root, and
// "/a%00b" lost everything after the NUL.
TEST(CMPathFuzzFindings, EscapesOfNulAndByteOrderMarkDecodeToThemselves) {
    const QChar nul(0);
    const QChar bom(0xFEFF);
    struct Case {
        const char* encoded;
        QStringList segments;
        QList<CMPath::Param> params;
    };
    const std::vector<Case> cases = {
        {"/%00", {QString(nul)}, {}},
        {"/a%00b", {QStringLiteral("a") + nul + QStringLiteral("b")}, {}},
        {"/%EF%BB%BF", {QString(bom)}, {}},
        {"/x%EF%BB%BF/%C3%A9%EF%BB%BF", {QStringLiteral("x") + bom, QStringLiteral("\u00e9") + bom}, {}},
        {"/a?%00=%EF%BB%BF&k=%00v",
         {QStringLiteral("a")},
         {{QString(nul), QString(bom)}, {"k", nul + QStringLiteral("v")}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.encoded);
        const CMPath path = CMPath::fromEncoded(QString::fromLatin1(c.encoded));
        EXPECT_EQ(path.segments(), c.segments);
        EXPECT_EQ(path.params(), c.params);
        const QString encoded = path.toEncoded();
        EXPECT_EQ(CMPath::fromEncoded(encoded), path) << encoded.toStdString();
        EXPECT_EQ(CMPath::fromEncoded(encoded).toEncoded(), encoded);
    }
}

} // namespace
