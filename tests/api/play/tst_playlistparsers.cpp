#include <QFile>
#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <vector>

#include "playlistdata.h"
#include "playlistparsenode.h"
#include "playlistparsers.h"
#include "support/logcapture.h"

namespace {

const QString Base = QStringLiteral("http://h/lists/"); // the directory of every document's URL

QByteArray readDataFile(const char* name) {
    QFile file(qEnvironmentVariable("ZUVO_TEST_DATA") + QLatin1Char('/') + QLatin1String(name));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << name;
    return file.readAll();
}

// One of each parser, in the parse node's order of trial.
struct AllParsers {
    PlayListParserASX asx;
    PlayListParserINI ini;
    PlayListParserM3U m3u;
    PlayListParserPLS pls;
    PlayListParserWPL wpl;
    PlayListParserURL url;
    PlayListParser* const list[6] = {&asx, &ini, &m3u, &pls, &wpl, &url};
    PlayListParseNode node{CMPath("/parser")};

    // Offers body to every parser (only accepts, of "AIMPWU", 0: none, takes it)
    // and the parse node: the rows, items of service, as "title|uri|mimeType|artist"
    // lines, trailing empty fields cut, Base as "~", PLS rows sorted.
    std::string parse(const QByteArray& body, char accepts, const char* service,
                      const char* contentType = nullptr) {
        ZuvoMetaData metaData;
        metaData.setServiceID(QString::fromLatin1(service));
        ZuvoMediaData mediaData;
        mediaData.setMetaData(metaData);
        ZuvoRoles request;
        request.setMediaData(mediaData);
        PlayListData data(Base + QStringLiteral("list"), CMSetDataRequest());
        data.setDocument(body, QString::fromLatin1(contentType));
        QList<QVariant> rows;
        for (int i = 0; i < 6; ++i) {
            const PlayListParser::Result result = list[i]->parse(request, data);
            EXPECT_EQ(result.ok, "AIMPWU"[i] == accepts) << "parser " << i;
            EXPECT_TRUE(result.ok || result.rows.isEmpty());
            if (result.ok)
                rows = result.rows;
        }
        const PlayListParser::Result byNode = node.parse(request, data);
        EXPECT_EQ(byNode.ok, accepts != 0);
        EXPECT_EQ(byNode.rows, rows);
        QStringList lines;
        for (const QVariant& variant : rows) {
            const ZuvoRoles row(variant.toHash());
            const ZuvoResource resource = row.mediaData().resources().value(0);
            EXPECT_EQ(row.type(), 3);
            EXPECT_EQ(row.mediaData().metaData().serviceID(), QString::fromLatin1(service));
            EXPECT_EQ(row.mediaData().resources().size(), 1);
            QString line = row.title() + '|' + resource.uri().replace(Base, QStringLiteral("~")) + '|' +
                           resource.mimeType() + '|' + row.mediaData().metaData().artist();
            while (line.endsWith(QLatin1Char('|')))
                line.chop(1);
            lines.append(line);
        }
        if (accepts == 'P')
            lines.sort();
        return lines.join(QLatin1Char('\n')).toStdString();
    }
};

// A document type declaration whose entity l9 expands to 3 * 10^9 characters.
QByteArray billionLaughs() {
    QByteArray declaration = "<!DOCTYPE asx [<!ENTITY l0 \"lol\">";
    for (int level = 1; level <= 9; ++level)
        declaration += "<!ENTITY l" + QByteArray::number(level) + " \"" +
                       QByteArray("&l" + QByteArray::number(level - 1) + ";").repeated(10) + "\">";
    return declaration + "]>";
}

} // namespace

TEST(PlayListParsers, FormatsAndHostileBodies) {
    struct Case {
        const char* name;
        QByteArray body;
        char accepts;
        std::string rows;
        const char* contentType = nullptr;
    };
    const QByteArray longUrl = "http://" + QByteArray(9993, 'a') + QByteArray(10, 'b');
    const QByteArray wplBody = "<smil><media src='a'/></smil>";
    const std::vector<Case> cases = {
        {"station.asx", readDataFile("station.asx"), 'A',
         "Live Feed|mms://media.example.com/live|video/x-ms-asf\n"
         "Intro|~clips/intro.wma|audio/x-ms-wma\n"
         "|~second.asf|video/x-ms-asf\n"
         "Odd attribute||audio/unknown"},
        {"stream.ini", readDataFile("stream.ini"), 'I',
         "|mmsh://wm.example.com/live?MSWMExt=.asf|video/x-ms-asf\n"
         "|https://wm.example.com/secure|audio/unknown\n"
         "|mmsh://h/lists/rel/stream.asf|video/x-ms-asf\n"
         "|mmsh://wm.example.com/alt|video/x-ms-asf",
         "video/x-ms-asf"},
        {"party.m3u", readDataFile("party.m3u"), 'M',
         "Around the World|~music/around the world.mp3|audio/mpeg|Daft Punk\n"
         "Radio Paradise|http://stream.example.org/rp/main.aac|audio/aac\n"
         "Untitled|~.shared/jingle.mp3|audio/mpeg\n"
         "|~no-extinf.ogg|audio/ogg\n"
         "Roads|~C:/Music/roads.flac|audio/flac|Portishead"},
        {"utf16.m3u", readDataFile("utf16.m3u"), 'M',
         "Hopp\u00edpolla|~hopp\u00edpolla.mp3|audio/mpeg|Sigur R\u00f3s"},
        {"radio.pls", readDataFile("radio.pls"), 'P',
         "AC/DC Hour|~../archive/show 12.mp3|audio/mpeg\n"
         "Example Radio (128k)|http://stream.example.net:8000/live.mp3|audio/mpeg\n"
         "http://backup.example.net/live.aac|http://backup.example.net/live.aac|audio/aac"},
        {"library.wpl", readDataFile("library.wpl"), 'W',
         "|~../Music/Air/Moon Safari/01 La femme d'argent.mp3|audio/mpeg\n"
         "|~//nas/music/Bach & Sons.flac|audio/flac\n"
         "|http://radio.example.com/stream.wma|audio/x-ms-wma\n"
         "||audio/unknown"},
        // URL lists: entries stand as they are.
        {"URL: trimmed, unresolved", "http://a/1\r\n  # note  \n\nrel.ogg\n", 'U',
         "|http://a/1|audio/unknown\n|# note|audio/unknown\n|rel.ogg|audio/ogg"},
        {"URL: first line cut at 10000 characters", longUrl, 'U',
         ("|" + longUrl.left(10000) + "|audio/unknown\n|bbbbbbbbbb|audio/unknown").toStdString()},
        {"PLS: raw path as title, bad numbers are 0, titles alone nothing",
         "[playlist]\nFile=x.mp3\nFileX=y.mp3\nFile2=sub/z.mp3\nTitle2=\nTitle3=T\n", 'P',
         "sub/z.mp3|~sub/z.mp3|audio/mpeg\ny.mp3|~y.mp3|audio/mpeg"},
        {"M3U: descriptions and ./ removal",
         "#extm3u\n#EXTINF:100\na.mp3\n#EXTINF:5,- Title\nb.mp3\n#EXTINF:1,A - B\n#EXTINF:2,C\nc.mp3\n"
         "#EXTINF1,x\nsub/../d.mp3\nhttp://h/./x.mp3\n",
         'M',
         "|~a.mp3|audio/mpeg\n- Title|~b.mp3|audio/mpeg\nC|~c.mp3|audio/mpeg\n|~sub/.d.mp3|audio/mpeg\n"
         "|http://h/x.mp3|audio/mpeg"},
        // Also what makes an entry a URL of its own: word characters, then "://".
        {"INI: ref prefix, value after the first =",
         "[REFERENCE]\nREF=a.wma\nRef2= c=d\nRe=x\nXRef1=y\nRef3 z\nVersion=1\nRef4=\nRef5=HTTP_2://x\n"
         "Ref6=x-y://z\nRef7=/a.mp3\nRef8= http://x\n",
         'I',
         "|~a.wma|audio/x-ms-wma\n|~ c=d|audio/unknown\n||audio/unknown\n|HTTP_2://x|audio/unknown\n"
         "|~x-y://z|audio/unknown\n|~/a.mp3|audio/mpeg\n|~ http://x|audio/unknown"},
        {"ASX: href over HREF, no ref, last title, any depth",
         "<asx><entry><ref href='a.mp3' HREF='b.mp3'/></entry><entry><title>T</title></entry>"
         "<repeat><entry><title>A</title><title>B</title><ref href='c'/></entry></repeat></asx>",
         'A', "|~a.mp3|audio/mpeg\nT\nB|~c|audio/unknown"},
        {"ASX: entities and prolog",
         "\xef\xbb\xbf<?xml version='1.0'?>\n<!-- c --><!DOCTYPE asx><asx><entry><title>R&amp;B &#x263A;"
         "</title><ref href='a&amp;b.mp3'/></entry></asx>",
         'A', "R&B \u263A|~a&b.mp3|audio/mpeg"},
        {"ASX: internal subset",
         "<?xml version='1.0'?><!DOCTYPE asx [<!ENTITY s 'http://s/'><!ENTITY n '&s;n.mp3'>"
         "<!ATTLIST ref href CDATA 'd.mp3'>]><asx><entry><title>&n;</title><ref href='&n;'/></entry>"
         "<entry><ref/></entry></asx>",
         'A', "http://s/n.mp3|http://s/n.mp3|audio/mpeg\n|~d.mp3|audio/mpeg"},
        {"ASX: billion laughs, the rows before it stay",
         "<?xml version='1.0' encoding='ISO-8859-1'?>" + billionLaughs() +
             "<asx><entry><title>Caf\xe9</title><ref href='a.mp3'/></entry>"
             "<entry><title>&l9;</title><ref href='b.mp3'/></entry></asx>",
         'A', "Caf\u00e9|~a.mp3|audio/mpeg"},
        {"WPL: XML declaration first, attribute case",
         "<?xml version=\"1.0\"?>\r\n<?wpl version=\"1.0\"?>\r\n<smil><media src='a'/><media "
         "Src='b'/></smil>",
         'W', "|~a|audio/unknown\n||audio/unknown"},
        {"WPL: error after acceptance", "<?wpl version=\"1.0\"?><smil><media src='a'/><media src='b'", 'W',
         "|~a|audio/unknown"},
    };
    AllParsers all;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(all.parse(c.body, c.accepts, c.name, c.contentType), c.rows);
    }
    // Near misses of each format's first line or first token, which no parser takes.
    for (const QByteArray& body : QByteArrayList{
             "", " http://a/1.mp3\n", "HTTP://a/1.mp3\n", "mms://a/1\n", "   \n[playlist]\nFile1=a.mp3\n",
             "[playlists]\nFile1=a.mp3\n", "#EXTM3U \na.mp3\n", "#EXTM3U\ra.mp3\r", " [reference]\nRef1=a\n",
             "<playlist><asx><entry><ref href='a'/></entry></asx></playlist>", wplBody,
             "<?wpl version='1.0'?>" + wplBody,
             "<?xml-stylesheet href='s'?><?wpl version=\"1.0\"?>" + wplBody}) {
        SCOPED_TRACE(body.toStdString());
        all.parse(body, 0, "none");
    }

    // Hostile and broken bodies: every parser answers, with bounded work, and
    // entries past MaxRows are dropped with one warning, the rows before kept.
    QByteArray binary;
    for (int i = 0; i < 64 * 1024; ++i)
        binary += char((i * 7919) % 251);
    // Entity expansion stops after this many 4000-character values.
    const int expandedRows = int(PlayListXmlGuard::MaxXmlExpansion / 4000);
    const QByteArray big(4000, 'a');
    const int count = PlayListParser::MaxRows + 5;
    const int max = PlayListParser::MaxRows;
    const QByteArray references =
        "<!DOCTYPE asx [<!ENTITY a \"" + big + "\">]><asx>" +
        QByteArray("<entry><title>&a;</title><ref href='x'/></entry>").repeated(2000) + "</asx>";
    QByteArray utf16;
    for (const char c : references)
        utf16 += QByteArray(1, c) + '\0';
    QByteArray plsFiles;
    for (int i = 1; i <= count; ++i)
        plsFiles += "File" + QByteArray::number(i) + "=x\n";
    // Name, body, the parser that takes it, the number of rows.
    const std::vector<std::tuple<const char*, QByteArray, char, int>> hostile = {
        {"binary", binary, 0, 0},
        {"a single 5 MiB line", "#EXTM3U\n" + QByteArray(5 << 20, 'x'), 'M', 1},
        {"a 5 MiB URL line comes in two pieces", "http://" + QByteArray(5 << 20, 'u'), 'U', 2},
        {"deep nesting after entries",
         "<?wpl version=\"1.0\"?><smil><media src='a'/>" + QByteArray("<seq>").repeated(1000000) +
             "<media src='b'/>",
         'W', 1},
        {"legal nesting", "<asx>" + QByteArray("<repeat>").repeated(200) + "<entry><ref href='a'/></entry>",
         'A', 1},
        {"references to a large entity", references, 'A', expandedRows},
        {"references to a large entity, UTF-16 without byte-order mark", utf16, 'A', expandedRows},
        {"references in one attribute",
         "<?wpl version=\"1.0\"?><!DOCTYPE smil [<!ENTITY a \"" + big + "\">]><smil><media src=\"" +
             QByteArray("&a;").repeated(100000) + "\"/></smil>",
         'W', 0},
        {"attribute defaults",
         "<?wpl version=\"1.0\"?><!DOCTYPE smil [<!ATTLIST media src CDATA \"" + big + "\">]><smil>" +
             QByteArray("<media/>").repeated(100000) + "</smil>",
         'W', expandedRows},
        {"URL rows", QByteArray("http://a/x\n").repeated(count), 'U', max},
        {"M3U rows", "#EXTM3U\n" + QByteArray("x\n").repeated(count), 'M', max},
        {"PLS rows, a known key still replaced", "[playlist]\n" + plsFiles + "File1=last\n", 'P', max},
        {"INI rows", "[reference]\n" + QByteArray("Ref=x\n").repeated(count), 'I', max},
        {"ASX rows", "<asx>" + QByteArray("<entry><ref href='x'/></entry>").repeated(count), 'A', max},
        {"WPL rows", "<?wpl version=\"1.0\"?><smil>" + QByteArray("<media src='x'/>").repeated(count), 'W',
         max},
    };
    for (const auto& [name, body, accepts, expected] : hostile) {
        SCOPED_TRACE(name);
        LogCapture capture;
        const std::string rows = all.parse(body, accepts, name);
        EXPECT_EQ(rows.empty() ? 0 : std::count(rows.begin(), rows.end(), '\n') + 1, expected);
        // Once per parse: by the parser and by the parse node.
        EXPECT_EQ(capture.count("Playlist has more than 10000 entries; ignoring the rest"),
                  expected == max ? 2 : 0);
        EXPECT_EQ(rows.find("last|~last|audio/unknown") != std::string::npos, accepts == 'P');
    }
}
