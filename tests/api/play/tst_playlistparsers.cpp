#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "logging.h"
#include "playlistdata.h"
#include "playlistparsenode.h"
#include "playlistparsers.h"
#include "support/logcapture.h"

using ::testing::ElementsAreArray;
using ::testing::UnorderedElementsAreArray;

namespace {

const QString Url = QStringLiteral("http://h/lists/list");
const QString B = QStringLiteral("http://h/lists/"); // the directory of Url

const QString Mpeg = QStringLiteral("audio/mpeg");
const QString Unknown = QStringLiteral("audio/unknown");
const QString Asf = QStringLiteral("video/x-ms-asf");
const QString Wma = QStringLiteral("audio/x-ms-wma");

// What a row says, for comparison.
struct Row {
    QString title;
    QString uri;
    QString mimeType;
    QString artist;
    bool operator==(const Row& o) const {
        return title == o.title && uri == o.uri && mimeType == o.mimeType && artist == o.artist;
    }
};

void PrintTo(const Row& row, std::ostream* os) {
    *os << "{title \"" << row.title << "\", uri \"" << row.uri << "\", mime \"" << row.mimeType
        << "\", artist \"" << row.artist << "\"}";
}

Row rowOf(const QVariant& variant) {
    const ZuvoRoles roles(variant.toHash());
    const ZuvoMediaData mediaData = roles.mediaData();
    const ZuvoResource resource = mediaData.resources().value(0);
    return {roles.title(), resource.uri(), resource.mimeType(), mediaData.metaData().artist()};
}

std::vector<Row> rowsOf(const QList<QVariant>& rows) {
    std::vector<Row> out;
    for (const QVariant& row : rows)
        out.push_back(rowOf(row));
    return out;
}

// A job holding body as if it had been fetched from url.
std::unique_ptr<PlayListData> fetched(const QByteArray& body, const QString& contentType = QString(),
                                      const QString& url = Url) {
    auto data = std::make_unique<PlayListData>(url, CMSetDataRequest());
    data->setDocument(body, contentType);
    return data;
}

struct Case {
    const char* name;
    QByteArray body;
    bool ok;
    std::vector<Row> rows;
    QString contentType = QString();
};

// Runs every case through parser; ordered: whether rows must come in order.
void runTable(PlayListParser& parser, const std::vector<Case>& cases, bool ordered = true) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto data = fetched(c.body, c.contentType);
        const PlayListParser::Result result = parser.parse(ZuvoRoles(), *data);
        EXPECT_EQ(result.ok, c.ok);
        if (ordered) {
            EXPECT_THAT(rowsOf(result.rows), ElementsAreArray(c.rows));
        } else {
            EXPECT_THAT(rowsOf(result.rows), UnorderedElementsAreArray(c.rows));
        }
    }
}

Row entry(const QString& uri, const QString& mimeType, const QString& title = QString(),
          const QString& artist = QString()) {
    return {title, uri, mimeType, artist};
}

QByteArray repeated(const QByteArray& piece, int count) {
    QByteArray out;
    out.reserve(piece.size() * count);
    for (int i = 0; i < count; ++i)
        out += piece;
    return out;
}

// A document type declaration whose entity l9 expands to 3 * 10^9 characters.
QByteArray billionLaughs() {
    QByteArray declaration = "<!DOCTYPE asx [<!ENTITY l0 \"lol\">";
    for (int level = 1; level <= 9; ++level)
        declaration += "<!ENTITY l" + QByteArray::number(level) + " \"" +
                       repeated("&l" + QByteArray::number(level - 1) + ";", 10) + "\">";
    return declaration + "]>";
}

// One of each parser, in the order ASX, INI, M3U, PLS, WPL, URL.
struct AllParsers {
    PlayListParserASX asx;
    PlayListParserINI ini;
    PlayListParserM3U m3u;
    PlayListParserPLS pls;
    PlayListParserWPL wpl;
    PlayListParserURL url;
    PlayListParser* const list[6] = {&asx, &ini, &m3u, &pls, &wpl, &url};
};

} // namespace

TEST(PlayListParserURL, Table) {
    PlayListParserURL parser;
    const QByteArray longLine = "http://" + QByteArray(9993, 'a') + QByteArray(10, 'b');
    runTable(parser, {
                         {"every non-empty line counts, trimmed and unresolved",
                          "http://a/1.mp3\n  # note  \n\nrel.mp3\r\n",
                          true,
                          {entry("http://a/1.mp3", Mpeg), entry("# note", Unknown), entry("rel.mp3", Mpeg)}},
                         {"https first line", "https://a/s\n", true, {entry("https://a/s", Unknown)}},
                         {"leading blank", " http://a/1.mp3\n", false, {}},
                         {"scheme case matters", "HTTP://a/1.mp3\n", false, {}},
                         {"other scheme", "mms://a/1\n", false, {}},
                         {"empty", "", false, {}},
                         {"first line cut at 10000 characters",
                          longLine,
                          true,
                          {entry(QString::fromLatin1(longLine.left(10000)), Unknown),
                           entry(QStringLiteral("bbbbbbbbbb"), Unknown)}},
                     });
}

TEST(PlayListParserPLS, Table) {
    PlayListParserPLS parser;
    runTable(parser,
             {
                 {"empty lines before an odd-cased header",
                  "\n\n[PlayList]\nFile1=a.mp3\n",
                  true,
                  {entry(B + "a.mp3", Mpeg, "a.mp3")}},
                 {"blank header, lower-case keys ignored", " [playlist] \nfile1=a.mp3\n", true, {}},
                 {"a line of blanks is not skipped", "   \n[playlist]\nFile1=a.mp3\n", false, {}},
                 {"backslashes in path and title",
                  "[playlist]\r\nFile3=C:\\music\\a.mp3\r\nTitle3=AC\\DC\r\n",
                  true,
                  {entry(B + "C:/music/a.mp3", Mpeg, "AC/DC")}},
                 {"empty title falls back to the raw path",
                  "[playlist]\nFile1=sub/a.mp3\nTitle1=\n",
                  true,
                  {entry(B + "sub/a.mp3", Mpeg, "sub/a.mp3")}},
                 {"later line for a key wins",
                  "[playlist]\nFile1=a.mp3\nTitle1=A\nFile1=b.mp3\nTitle1=B\n",
                  true,
                  {entry(B + "b.mp3", Mpeg, "B")}},
                 {"keys that are no number are 0",
                  "[playlist]\nFile=x.mp3\nFileX=y.mp3\nFile2=z.mp3\n",
                  true,
                  {entry(B + "y.mp3", Mpeg, "y.mp3"), entry(B + "z.mp3", Mpeg, "z.mp3")}},
                 {"titles without files give nothing; other keys ignored",
                  "[playlist]\nNumberOfEntries=2\nTitle1=T\nLength1=-1\nVersion=2\nFile2=http://s/x\n",
                  true,
                  {entry("http://s/x", Unknown, "http://s/x")}},
                 {"header only", "[playlist]", true, {}},
                 {"empty", "", false, {}},
                 {"not a header", "[playlists]\nFile1=a.mp3\n", false, {}},
             },
             false);
}

TEST(PlayListParserM3U, Table) {
    PlayListParserM3U parser;
    runTable(parser,
             {
                 {"lower-case header", "#extm3u\na.mp3\n", true, {entry(B + "a.mp3", Mpeg, "")}},
                 {"trailing blank after header", "#EXTM3U \na.mp3\n", false, {}},
                 {"artist and title, extra pieces dropped, ./ removed",
                  "#EXTM3U\n#EXTINF:123,Artist - Title - Remix\n./a.mp3\n",
                  true,
                  {entry(B + "a.mp3", Mpeg, "Title", "Artist")}},
                 {"text after a second comma dropped, absolute URL kept",
                  "#EXTM3U\n#EXTINF:-1,Radio, Live\nhttp://host/x\n",
                  true,
                  {entry("http://host/x", Unknown, "Radio")}},
                 {"../ loses its ./", "#EXTM3U\nsub/../a.mp3\n", true, {entry(B + "sub/.a.mp3", Mpeg, "")}},
                 {"./ inside a URL removed",
                  "#EXTM3U\nhttp://h/./x.mp3\n",
                  true,
                  {entry("http://h/x.mp3", Mpeg, "")}},
                 {"extinf applies to the next entry only",
                  "#EXTM3U\r\n#EXTINF:1,One\r\na.mp3\r\nb.mp3\r\n",
                  true,
                  {entry(B + "a.mp3", Mpeg, "One"), entry(B + "b.mp3", Mpeg, "")}},
                 {"comments, blanks and odd-cased tags",
                  "#EXTM3U\n# comment\n\n   \n  #extinf:5,  Solo  \n  music\\a.mp3  \n#EXTINF1,x\nb.mp3\n",
                  true,
                  {entry(B + "music/a.mp3", Mpeg, "Solo"), entry(B + "b.mp3", Mpeg, "")}},
                 {"no comma: no description",
                  "#EXTM3U\n#EXTINF:100\na.mp3\n",
                  true,
                  {entry(B + "a.mp3", Mpeg, "")}},
                 {"a single name piece is the title",
                  "#EXTM3U\n#EXTINF:5,- Title\na.mp3\n",
                  true,
                  {entry(B + "a.mp3", Mpeg, "- Title")}},
                 {"only the last extinf counts",
                  "#EXTM3U\n#EXTINF:1,A - B\n#EXTINF:2,C\na.mp3\n",
                  true,
                  {entry(B + "a.mp3", Mpeg, "C")}},
                 {"empty", "", false, {}},
             });
}

TEST(PlayListParserINI, Table) {
    PlayListParserINI parser;
    const QByteArray doc = "[Reference]\r\nRef1=http://host/stream\r\n";
    runTable(
        parser,
        {
            {"MMSH content type rewrites http",
             doc,
             true,
             {entry("mmsh://host/stream", Asf)},
             "video/x-ms-asf"},
            {"content type with parameters",
             doc,
             true,
             {entry("http://host/stream", Unknown)},
             "video/x-ms-asf; charset=utf-8"},
            {"content type case matters",
             doc,
             true,
             {entry("http://host/stream", Unknown)},
             "VIDEO/X-MS-ASF"},
            {"no content type", doc, true, {entry("http://host/stream", Unknown)}},
            {"https is never rewritten",
             "[reference]\nRef1=https://host/s\n",
             true,
             {entry("https://host/s", Unknown)},
             "video/x-ms-asf"},
            {"relative entries are resolved before the rewrite",
             "[reference]\nRef1=x.asf\n",
             true,
             {entry("mmsh://h/lists/x.asf", Asf)},
             "video/x-ms-asf"},
            {"ref prefix in any case, value untrimmed after the first =",
             "[REFERENCE]\nREF=a.wma\nReference=b.wma\nRef2= c=d\nRe=x\nXRef1=y\nRef3 z\nVersion=1\nRef4=\n",
             true,
             {entry(B + "a.wma", Wma), entry(B + "b.wma", Wma), entry(B + " c=d", Unknown),
              entry("", Unknown)}},
            {"header is not trimmed", " [reference]\nRef1=a\n", false, {}},
            {"empty", "", false, {}},
        });
}

TEST(PlayListParserASX, Table) {
    PlayListParserASX parser;
    runTable(
        parser,
        {
            {"titles and refs",
             "<asx version='3.0'><title>List</title><entry><title>One</title><ref href='a.mp3'/></entry>"
             "<entry><ref href='mms://s/live'/><title>Two</title></entry></asx>",
             true,
             {entry(B + "a.mp3", Mpeg, "One"), entry("mms://s/live", Asf, "Two")}},
            {"the last ref wins",
             "<asx><entry><ref href='a'/><ref href='b'/></entry></asx>",
             true,
             {entry(B + "b", Unknown)}},
            {"REF with HREF found",
             "<ASX><ENTRY><REF HREF='x.wma'/></ENTRY></ASX>",
             true,
             {entry(B + "x.wma", Wma)}},
            {"Href is not found",
             "<Asx><Entry><Ref Href='x.wma'/></Entry></Asx>",
             true,
             {entry("", Unknown)}},
            {"href wins over HREF",
             "<asx><entry><ref href='a.mp3' HREF='b.mp3'/></entry></asx>",
             true,
             {entry(B + "a.mp3", Mpeg)}},
            {"entry without ref has an empty resource",
             "<asx><entry><title>T</title></entry></asx>",
             true,
             {entry("", "", "T")}},
            {"later title wins, entries at any depth",
             "<asx><repeat><entry><title>A</title><title>B</title><ref href='a.mp3'/></entry></repeat></asx>",
             true,
             {entry(B + "a.mp3", Mpeg, "B")}},
            {"entryref and moreinfo ignored",
             "<asx><entryref href='x.asx'/><moreinfo href='http://i/'/><entry><ref "
             "href='a.mp3'/></entry></asx>",
             true,
             {entry(B + "a.mp3", Mpeg)}},
            {"entities and prolog",
             "\xef\xbb\xbf<?xml version='1.0'?>\n<!-- c --><!DOCTYPE asx><asx><entry><title>R&amp;B "
             "&#x263A;</title>"
             "<ref href='a&amp;b.mp3'/></entry></asx>",
             true,
             {entry(B + "a&b.mp3", Mpeg, QStringLiteral("R&B \u263A"))}},
            {"internal subset: entities and attribute defaults",
             "<?xml version='1.0'?><!DOCTYPE asx [<!ENTITY s 'http://s/'><!ENTITY n '&s;n.mp3'>"
             "<!ATTLIST ref href CDATA 'd.mp3'>]><asx><entry><title>&n;</title><ref href='&n;'/></entry>"
             "<entry><ref/></entry></asx>",
             true,
             {entry("http://s/n.mp3", Mpeg, "http://s/n.mp3"), entry(B + "d.mp3", Mpeg)}},
            {"billion laughs: the rows before it stay",
             "<?xml version='1.0' encoding='ISO-8859-1'?>" + billionLaughs() +
                 "<asx><entry><title>Caf\xe9</title><ref href='a.mp3'/></entry>"
                 "<entry><title>&l9;</title><ref href='b.mp3'/></entry></asx>",
             true,
             {entry(B + "a.mp3", Mpeg, QStringLiteral("Caf\u00e9"))}},
            {"document ends inside an entry",
             "<asx><entry><ref href='a.mp3'/></entry><entry><ref href='b.mp3'/>",
             true,
             {entry(B + "a.mp3", Mpeg)}},
            {"element inside title aborts",
             "<asx><entry><title>a<b/>c</title><ref href='x'/></entry></asx>",
             true,
             {}},
            {"first element is not asx",
             "<playlist><asx><entry><ref href='a'/></entry></asx></playlist>",
             false,
             {}},
            {"not XML", "#EXTM3U\na.mp3\n", false, {}},
            {"empty", "", false, {}},
        });
}

TEST(PlayListParserWPL, Table) {
    PlayListParserWPL parser;
    const QByteArray body = "<smil><body><seq><media src='..\\Music\\a.wma'/><MEDIA src='http://s/b.mp3'/>"
                            "<media/><media Src='x'/></seq></body></smil>";
    runTable(parser,
             {
                 {"entries",
                  "<?wpl version=\"1.0\"?>" + body,
                  true,
                  {entry(B + "../Music/a.wma", Wma), entry("http://s/b.mp3", Mpeg), entry("", Unknown),
                   entry("", Unknown)}},
                 {"XML declaration first",
                  "<?xml version=\"1.0\"?>\r\n<?wpl version=\"1.0\"?>\r\n<smil><media src='a'/></smil>",
                  true,
                  {entry(B + "a", Unknown)}},
                 {"internal subset",
                  "<?xml version=\"1.0\"?><?wpl version=\"1.0\"?><!DOCTYPE smil [<!ENTITY d 'http://s/'>"
                  "<!ATTLIST media src CDATA 'x.wma'>]><smil><media src='&d;a.mp3'/><media/></smil>",
                  true,
                  {entry("http://s/a.mp3", Mpeg), entry(B + "x.wma", Wma)}},
                 {"the first instruction counts, wherever it is",
                  "<smil><?wpl version=\"1.0\"?><media src='a'/></smil>",
                  true,
                  {entry(B + "a", Unknown)}},
                 {"single quotes", "<?wpl version='1.0'?>" + body, false, {}},
                 {"trailing blank", "<?wpl version=\"1.0\" ?>" + body, false, {}},
                 {"target case matters", "<?WPL version=\"1.0\"?>" + body, false, {}},
                 {"another instruction first",
                  "<?xml-stylesheet href='s'?><?wpl version=\"1.0\"?>" + body,
                  false,
                  {}},
                 {"no instruction", body, false, {}},
                 {"error after acceptance keeps the rows",
                  "<?wpl version=\"1.0\"?><smil><media src='a'/><media src='b'",
                  true,
                  {entry(B + "a", Unknown)}},
             });
}

TEST(PlayListParsers, RowsArePlayableItemsOfTheRequestingService) {
    ZuvoRoles request;
    ZuvoMediaData mediaData;
    ZuvoMetaData metaData;
    metaData.setServiceID(QStringLiteral("radio-service"));
    mediaData.setMetaData(metaData);
    request.setMediaData(mediaData);

    PlayListParserM3U parser;
    const auto result = parser.parse(request, *fetched("#EXTM3U\n#EXTINF:1,A - T\na.mp3\nb.mp3\n"));
    ASSERT_EQ(result.rows.size(), 2);
    for (const QVariant& variant : result.rows) {
        const ZuvoRoles row(variant.toHash());
        EXPECT_EQ(row.type(), 3);
        EXPECT_EQ(row.mediaData().metaData().serviceID(), QStringLiteral("radio-service"));
        EXPECT_EQ(row.mediaData().resources().size(), 1);
    }
    EXPECT_EQ(ZuvoRoles(result.rows.at(0).toHash()).mediaData().metaData().artist(), QStringLiteral("A"));

    // The request roles are per call: the next parse sees its own.
    const auto next = parser.parse(ZuvoRoles(), *fetched("#EXTM3U\na.mp3\n"));
    EXPECT_EQ(ZuvoRoles(next.rows.at(0).toHash()).mediaData().metaData().serviceID(), QString());
}

namespace {

QString dataFile(const QString& name) {
    // ZUVO_TEST_DATA is set by CTest; the source tree's copy serves direct runs.
    const QString dir = qEnvironmentVariable(
        "ZUVO_TEST_DATA", QFileInfo(QStringLiteral(__FILE__)).dir().filePath(QStringLiteral("../../data")));
    return QDir(dir).filePath(name);
}

QByteArray readDataFile(const QString& name) {
    QFile file(dataFile(name));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << file.fileName();
    return file.readAll();
}

} // namespace

// Real-world-shaped files: exactly one parser accepts each, and the parse
// node's order of trial finds it.
TEST(PlayListParsers, SampleFiles) {
    struct Sample {
        const char* file;
        int parser; // index into parsers
        std::vector<Row> rows;
        QString contentType = QString();
    };
    AllParsers all;
    const std::vector<Sample> samples = {
        {"station.asx",
         0,
         {entry("mms://media.example.com/live", Asf, "Live Feed"), entry(B + "clips/intro.wma", Wma, "Intro"),
          entry(B + "second.asf", Asf), entry("", Unknown, "Odd attribute")}},
        {"stream.ini",
         1,
         {entry("mmsh://wm.example.com/live?MSWMExt=.asf", Asf),
          entry("https://wm.example.com/secure", Unknown), entry("mmsh://h/lists/rel/stream.asf", Asf),
          entry("mmsh://wm.example.com/alt", Asf)},
         "video/x-ms-asf"},
        {"party.m3u",
         2,
         {entry(B + "music/around the world.mp3", Mpeg, "Around the World", "Daft Punk"),
          entry("http://stream.example.org/rp/main.aac", QStringLiteral("audio/aac"), "Radio Paradise"),
          entry(B + ".shared/jingle.mp3", Mpeg, "Untitled"),
          entry(B + "no-extinf.ogg", QStringLiteral("audio/ogg"), ""),
          entry(B + "C:/Music/roads.flac", QStringLiteral("audio/flac"), "Roads", "Portishead")}},
        {"utf16.m3u",
         2,
         {entry(B + QStringLiteral("hopp\u00edpolla.mp3"), Mpeg, QStringLiteral("Hopp\u00edpolla"),
                QStringLiteral("Sigur R\u00f3s"))}},
        {"radio.pls",
         3,
         {entry("http://stream.example.net:8000/live.mp3", Mpeg, "Example Radio (128k)"),
          entry(B + "../archive/show 12.mp3", Mpeg, "AC/DC Hour"),
          entry("http://backup.example.net/live.aac", QStringLiteral("audio/aac"),
                "http://backup.example.net/live.aac")}},
        {"library.wpl",
         4,
         {entry(B + "../Music/Air/Moon Safari/01 La femme d'argent.mp3", Mpeg),
          entry(B + "//nas/music/Bach & Sons.flac", QStringLiteral("audio/flac")),
          entry("http://radio.example.com/stream.wma", Wma), entry("", Unknown)}},
        {"urls.txt",
         5,
         {entry("http://ice.example.net/jazz.mp3", Mpeg), entry("# backup servers", Unknown),
          entry("https://ice2.example.net/jazz.ogg", QStringLiteral("audio/ogg")),
          entry("http://ice3.example.net/jazz", Unknown)}},
    };

    PlayListParseNode node(CMPath("/parser"));
    for (const Sample& sample : samples) {
        SCOPED_TRACE(sample.file);
        const auto data = fetched(readDataFile(QString::fromLatin1(sample.file)), sample.contentType);
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(all.list[i]->parse(ZuvoRoles(), *data).ok, i == sample.parser) << "parser " << i;
        const PlayListParser::Result result = node.parse(ZuvoRoles(), *data);
        EXPECT_TRUE(result.ok);
        if (sample.parser == 3) {
            EXPECT_THAT(rowsOf(result.rows), UnorderedElementsAreArray(sample.rows));
        } else {
            EXPECT_THAT(rowsOf(result.rows), ElementsAreArray(sample.rows));
        }
    }
}

// Hostile and broken bodies: every parser answers, with bounded work. The
// expected acceptance is given per parser (ASX, INI, M3U, PLS, WPL, URL) and
// rows = -1 means "any number".
TEST(PlayListParsers, HostileBodies) {
    QByteArray binary;
    for (int i = 0; i < 64 * 1024; ++i)
        binary += char((i * 7919) % 251);
    // Entity references and default attributes each add at most this many
    // 4000-character values: the rows of the entries before the limit stay.
    const int expandedRows = int(PlayListXmlGuard::MaxXmlExpansion / 4000);
    const QByteArray manyReferences = "<!DOCTYPE asx [<!ENTITY a \"" + QByteArray(4000, 'a') + "\">]><asx>" +
                                      repeated("<entry><title>&a;</title><ref href='x'/></entry>", 2000) +
                                      "</asx>";
    const QByteArray quadratic = "<?wpl version=\"1.0\"?><!DOCTYPE smil [<!ENTITY a \"" +
                                 QByteArray(4000, 'a') + "\">]><smil><media src=\"" +
                                 repeated("&a;", 100000) + "\"/></smil>";
    const QByteArray attributeDefaults =
        "<?wpl version=\"1.0\"?><!DOCTYPE smil [<!ATTLIST media src CDATA \"" + QByteArray(4000, 'a') +
        "\">]><smil>" + repeated("<media/>", 100000) + "</smil>";
    const QByteArray bigLine = "#EXTM3U\n" + QByteArray(5 * 1024 * 1024, 'x');

    struct Hostile {
        const char* name;
        QByteArray body;
        bool ok[6];
        int rows;
    };
    const std::vector<Hostile> cases = {
        {"binary", binary, {false, false, false, false, false, false}, 0},
        {"invalid UTF-8",
         "#EXTM3U\n#EXTINF:1,Bj\xf6rk - J\xf3ga\n\xff\xfe\xc0\xaf.mp3\n",
         {false, false, true, false, false, false},
         1},
        {"UTF-16 with byte-order mark",
         readDataFile(QStringLiteral("utf16.m3u")),
         {false, false, true, false, false, false},
         1},
        {"CR-only line ends hide the header",
         "#EXTM3U\ra.mp3\rb.mp3\r",
         {false, false, false, false, false, false},
         0},
        {"CR-only URL list is one line",
         "http://a/1\rhttp://a/2\r",
         {false, false, false, false, false, true},
         1},
        {"a single 5 MiB line", bigLine, {false, false, true, false, false, false}, 1},
        {"a 5 MiB URL line comes in two pieces",
         "http://" + QByteArray(5 * 1024 * 1024, 'u'),
         {false, false, false, false, false, true},
         2},
        {"deep nesting", "<asx>" + repeated("<entry>", 200000), {true, false, false, false, false, false}, 0},
        {"deep nesting after entries",
         "<?wpl version=\"1.0\"?><smil><media src='a'/>" + repeated("<seq>", 1000000) + "<media src='b'/>",
         {false, false, false, false, true, false},
         1},
        {"legal nesting",
         "<asx>" + repeated("<repeat>", 200) + "<entry><ref href='a'/></entry>",
         {true, false, false, false, false, false},
         1},
        {"truncated XML",
         "<asx><entry><ref href='a'/></entry><entry><ti",
         {true, false, false, false, false, false},
         1},
        {"references to a large entity",
         manyReferences,
         {true, false, false, false, false, false},
         expandedRows},
        {"references in one attribute", quadratic, {false, false, false, false, true, false}, 0},
        {"attribute defaults", attributeDefaults, {false, false, false, false, true, false}, expandedRows},
    };

    AllParsers all;
    for (const Hostile& c : cases) {
        SCOPED_TRACE(c.name);
        const auto data = fetched(c.body);
        for (int i = 0; i < 6; ++i) {
            const PlayListParser::Result result = all.list[i]->parse(ZuvoRoles(), *data);
            EXPECT_EQ(result.ok, c.ok[i]) << "parser " << i;
            if (result.ok && c.rows >= 0) {
                EXPECT_EQ(result.rows.size(), c.rows) << "parser " << i;
            }
            if (!result.ok) {
                EXPECT_TRUE(result.rows.isEmpty());
            }
        }
    }
}

// Entries past MaxRows are dropped with one warning; the rows before stay.
TEST(PlayListParsers, RowLimit) {
    const int count = PlayListParser::MaxRows + 5;
    QByteArray plsFiles;
    for (int i = 1; i <= count; ++i)
        plsFiles += "File" + QByteArray::number(i) + "=x\n";

    AllParsers all;
    struct Limit {
        const char* name;
        PlayListParser* parser;
        QByteArray body;
    };
    const Limit limits[] = {
        {"URL", &all.url, repeated("http://a/x\n", count)},
        {"M3U", &all.m3u, "#EXTM3U\n" + repeated("x\n", count)},
        {"PLS, a known key still replaced", &all.pls, "[playlist]\n" + plsFiles + "File1=last\n"},
        {"INI", &all.ini, "[reference]\n" + repeated("Ref=x\n", count)},
        {"ASX", &all.asx,
         "<asx>" + repeated("<entry><title>t</title><ref href='x'/></entry>", count) + "</asx>"},
        {"WPL", &all.wpl, "<?wpl version=\"1.0\"?><smil>" + repeated("<media src='x'/>", count) + "</smil>"},
    };
    for (const Limit& limit : limits) {
        SCOPED_TRACE(limit.name);
        LogCapture capture;
        const PlayListParser::Result result = limit.parser->parse(ZuvoRoles(), *fetched(limit.body));
        EXPECT_TRUE(result.ok);
        EXPECT_EQ(result.rows.size(), PlayListParser::MaxRows);
        EXPECT_EQ(capture.count(QStringLiteral("Playlist has more than 10000 entries; ignoring the rest")),
                  1);
    }
    const auto plsRows =
        rowsOf(all.pls.parse(ZuvoRoles(), *fetched("[playlist]\n" + plsFiles + "File1=last\n")).rows);
    EXPECT_NE(std::find(plsRows.begin(), plsRows.end(), entry(B + "last", Unknown, "last")), plsRows.end());
}
