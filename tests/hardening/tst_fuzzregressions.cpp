// Inputs with which the fuzz targets (fuzz/) found faults, kept as cases so
// that the faults stay fixed.

#include <gtest/gtest.h>
#include <tuple>

#include "model/cmpath.h"

// Percent-escapes of a NUL or of U+FEFF (whose UTF-8 form is a byte-order
// mark) were decoded to nothing: "/%00" and "/%EF%BB%BF" became a path with
// one empty segment, whose encoded form "/" reads back as the root, and
// "/a%00b" lost everything after the NUL.
TEST(CMPathFuzzFindings, EscapesOfNulAndByteOrderMarkDecodeToThemselves) {
    const QString nul(QChar(0)), bom(QChar(0xFEFF)), a = QStringLiteral("a");
    const std::tuple<const char*, QStringList, QList<CMPath::Param>> cases[] = {
        {"/%00", {nul}, {}},
        {"/a%00b", {a + nul + QStringLiteral("b")}, {}},
        {"/%EF%BB%BF", {bom}, {}},
        {"/x%EF%BB%BF/%C3%A9%EF%BB%BF", {QStringLiteral("x") + bom, QStringLiteral("\u00e9") + bom}, {}},
        {"/a?%00=%EF%BB%BF&k=%00v", {a}, {{nul, bom}, {"k", nul + QStringLiteral("v")}}},
    };
    for (const auto& [encoded, segments, params] : cases) {
        SCOPED_TRACE(encoded);
        const CMPath path = CMPath::fromEncoded(QString::fromLatin1(encoded));
        EXPECT_EQ(path.segments(), segments);
        EXPECT_EQ(path.params(), params);
        const QString again = path.toEncoded();
        EXPECT_EQ(CMPath::fromEncoded(again), path) << again.toStdString();
        EXPECT_EQ(CMPath::fromEncoded(again).toEncoded(), again);
    }
}
