#include <gtest/gtest.h>

#include "model/cmpath.h"

TEST(CMPath, EncodedFormIsCanonicalAndSurvivesARoundTrip) {
    const struct {
        const char* in;
        const char* encoded;
    } cases[] = {
        {"", ""},
        {"/", "/"},
        {"player/data/", "/player/data"},
        {"//a///b", "/a/b"},
        {"/list?from=3&sort=title", "/list?from=3&sort=title"},
        {"/list?flag", "/list?flag="},
        {"/a%2Fb/c", "/a%2Fb/c"},
        {"/a%zz", "/a%25zz"},
        {"/x#fragment", "/x"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(CMPath::fromEncoded(QString::fromUtf8(c.in)).toEncoded(), QString::fromUtf8(c.encoded))
            << c.in;
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
    EXPECT_TRUE(plain.equals(withParams, CMPath::CompareWithoutParams));
    EXPECT_FALSE(plain.equals(withParams, CMPath::CompareExact));
    EXPECT_EQ(withParams.withoutParams(), plain);
    EXPECT_EQ(qHash(withParams.withoutParams()), qHash(plain));
    EXPECT_FALSE(CMPath().equals(CMPath("/"), CMPath::CompareWithoutParams));
    EXPECT_TRUE(CMPath().isEmpty());
    EXPECT_FALSE(CMPath("/").isEmpty());

    EXPECT_EQ((CMPath("/player?x=1") + QStringLiteral("/control")).toEncoded(),
              QStringLiteral("/player/control?x=1"));
    EXPECT_EQ((CMPath("/player") + "/data" + CMPath("/playTime")).toEncoded(),
              QStringLiteral("/player/data/playTime"));
    EXPECT_EQ((CMPath() + QStringLiteral("/a")).toEncoded(), QStringLiteral("/a"));
    EXPECT_TRUE(CMPath("/a/b/c").startsWith(CMPath("/a/b")));
    EXPECT_FALSE(CMPath("/a/bc").startsWith(CMPath("/a/b")));
    EXPECT_EQ(CMPath("/a/b?q=1").parent().toEncoded(), QStringLiteral("/a"));
}
