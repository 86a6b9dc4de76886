#include <QDebug>
#include <gtest/gtest.h>

#include <utility>

#include "model/cmpath.h"

TEST(CMPath, EncodedFormIsCanonicalAndSurvivesARoundTrip) {
    // Canonical texts read back unchanged, others in their canonical form.
    // Escapes of NUL and of U+FEFF (a byte-order mark in UTF-8) decode to
    // themselves: once "/%00" read back as the root and "/a%00b" lost "b".
    for (const char* text : {"", "/", "/list?from=3&sort=title", "/a%2Fb/c", "/%00", "/a%00b"})
        EXPECT_EQ(CMPath::fromEncoded(QString::fromUtf8(text)).toEncoded(), QString::fromUtf8(text));
    const std::pair<const char*, const char*> cases[] = {
        {"player/data/", "/player/data"},
        {"//a///b", "/a/b"},
        {"/list?flag", "/list?flag="},
        {"/a%zz", "/a%25zz"},
        {"/x#fragment", "/x"},
        {"/%EF%BB%BF", "/\uFEFF"},
        {"/x%EF%BB%BF/%C3%A9%EF%BB%BF", "/x\uFEFF/\u00E9\uFEFF"},
        {"/a?%00=%EF%BB%BF&k=%00v", "/a?%00=\uFEFF&k=%00v"}};
    for (const auto& [in, encoded] : cases) {
        EXPECT_EQ(CMPath::fromEncoded(QString::fromUtf8(in)).toEncoded(), QString::fromUtf8(encoded)) << in;
        EXPECT_EQ(CMPath::fromEncoded(QString::fromUtf8(encoded)).toEncoded(), QString::fromUtf8(encoded))
            << in;
    }
    for (const QString& text :
         {QStringLiteral("/a b/ü/€"), QStringLiteral("/p?k=a&b%3D=c%26d"), QStringLiteral("/%41%4"),
          QStringLiteral("?only=params"), QString::fromUtf8("/ctl\x01/\x7f")}) {
        const CMPath path = CMPath::fromEncoded(text);
        EXPECT_EQ(CMPath::fromEncoded(path.toEncoded()), path) << text.toStdString();
        EXPECT_EQ(CMPath::fromEncoded(path.toEncoded()).toEncoded(), path.toEncoded()) << text.toStdString();
    }
    EXPECT_EQ((CMPath("/dir") + CMPath::fromEncoded(QStringLiteral("/a%2Fb"))).segments(),
              (QStringList{QStringLiteral("dir"), QStringLiteral("a/b")}));
}

TEST(CMPath, ParametersComparisonAndAppending) {
    const CMPath plain("/player/list");
    const CMPath withParams("/player/list?from=1&to=9");
    EXPECT_EQ(withParams.param(QStringLiteral("to")), QStringLiteral("9"));
    EXPECT_TRUE(withParams.param(QStringLiteral("missing")).isNull());
    EXPECT_NE(plain, withParams);
    EXPECT_TRUE(plain.equals(withParams, CMPath::CompareWithoutParams) &&
                !plain.equals(withParams, CMPath::CompareExact));
    EXPECT_EQ(withParams.withoutParams(), plain);
    EXPECT_EQ(qHash(withParams.withoutParams()), qHash(plain));
    EXPECT_FALSE(CMPath().equals(CMPath("/"), CMPath::CompareWithoutParams));
    EXPECT_TRUE(CMPath().isEmpty() && !CMPath("/").isEmpty() && withParams.hasParams() && !plain.hasParams());
    QString logged; // log lines show a path in its encoded form, unquoted
    QDebug(&logged) << withParams;
    EXPECT_EQ(logged.trimmed(), withParams.toEncoded());

    EXPECT_EQ((CMPath("/player?x=1") + QStringLiteral("/control")).toEncoded(),
              QStringLiteral("/player/control?x=1"));
    EXPECT_EQ((CMPath("/player") + "/data" + CMPath("/playTime")).toEncoded(),
              QStringLiteral("/player/data/playTime"));
    EXPECT_EQ((CMPath() + QStringLiteral("/a")).toEncoded(), QStringLiteral("/a"));
    EXPECT_TRUE(CMPath("/a/b/c").startsWith(CMPath("/a/b")));
    EXPECT_FALSE(CMPath("/a/bc").startsWith(CMPath("/a/b")));
    EXPECT_EQ(CMPath("/a/b?q=1").parent().toEncoded(), QStringLiteral("/a"));
}
