#include "playlistdocuments.h"

#include <QStringList>
#include <cstdint>

namespace zuvobench {

namespace {

// A small linear congruential generator: fixed sequence on every platform.
class Sequence {
public:
    explicit Sequence(std::uint32_t seed)
        : m_state(seed) {}
    std::uint32_t next(std::uint32_t bound) {
        m_state = m_state * 1664525u + 1013904223u;
        return (m_state >> 8) % bound;
    }

private:
    std::uint32_t m_state;
};

QByteArray word(Sequence& sequence) {
    static const char* const syllables[] = {"ka", "lo", "mi",  "ren", "do",  "sa", "vel", "tor",
                                            "an", "bi", "que", "ly",  "mar", "no", "zu",  "fe"};
    QByteArray result;
    const std::uint32_t count = 2 + sequence.next(3);
    for (std::uint32_t i = 0; i < count; ++i)
        result += syllables[sequence.next(16)];
    result[0] = char(result.at(0) - 'a' + 'A');
    return result;
}

QByteArray words(Sequence& sequence, std::uint32_t count) {
    QByteArray result = word(sequence);
    for (std::uint32_t i = 1; i < count; ++i)
        result += ' ' + word(sequence);
    return result;
}

QByteArray number(std::uint32_t value) {
    return QByteArray::number(value);
}

// A media path: absolute on a server every fourth entry, otherwise relative
// to the playlist (now and then with a "./" prefix).
QByteArray mediaPath(Sequence& sequence, int index, char separator) {
    const QByteArray album = words(sequence, 2);
    const QByteArray title = words(sequence, 2);
    const QByteArray file = number(std::uint32_t(index % 20 + 1)) + " - " + title + ".mp3";
    if (index % 4 == 0)
        return "http://cdn.example.com/media/" + number(std::uint32_t(index)) + '/' + word(sequence) + ".mp3";
    QByteArray path =
        (index % 4 == 1 ? QByteArray("./") : QByteArray()) + "music" + separator + album + separator + file;
    return path;
}

QByteArray streamUrl(Sequence& sequence, int index) {
    return "http://stream" + number(std::uint32_t(index % 7)) + ".example.com:8000/" + word(sequence) + '/' +
           number(std::uint32_t(index)) + (index % 2 ? ".mp3" : ".aac");
}

struct Shape {
    QByteArray header;
    QByteArray footer;
    QString suffix;
    QString contentType;
};

Shape shapeOf(PlaylistFormat format) {
    switch (format) {
    case PlaylistFormat::m3u:
        return {"#EXTM3U\n", "", QStringLiteral("m3u"), QStringLiteral("audio/x-mpegurl")};
    case PlaylistFormat::pls:
        return {"[playlist]\n", "Version=2\n", QStringLiteral("pls"), QStringLiteral("audio/x-scpls")};
    case PlaylistFormat::url:
        return {"", "", QStringLiteral("txt"), QStringLiteral("text/plain")};
    case PlaylistFormat::ini:
        return {"[Reference]\n", "", QStringLiteral("asf"), QStringLiteral("video/x-ms-asf")};
    case PlaylistFormat::asx:
        return {"<asx version=\"3.0\">\n<title>Generated list</title>\n", "</asx>\n", QStringLiteral("asx"),
                QStringLiteral("video/x-ms-asf")};
    case PlaylistFormat::wpl:
        return {
            "<?wpl version=\"1.0\"?>\n<smil>\n<head><title>Generated list</title></head>\n<body>\n<seq>\n",
            "</seq>\n</body>\n</smil>\n", QStringLiteral("wpl"), QStringLiteral("application/vnd.ms-wpl")};
    }
    return {};
}

QByteArray entry(PlaylistFormat format, Sequence& sequence, int index) {
    const QByteArray n = number(std::uint32_t(index + 1));
    switch (format) {
    case PlaylistFormat::m3u:
        return "#EXTINF:" + number(60 + sequence.next(400)) + ',' + words(sequence, 2) + " - " +
               words(sequence, 3) + '\n' + mediaPath(sequence, index, index % 3 ? '/' : '\\') + '\n';
    case PlaylistFormat::pls:
        return "File" + n + '=' + mediaPath(sequence, index, '\\') + "\nTitle" + n + '=' +
               words(sequence, 3) + "\nLength" + n + "=-1\n";
    case PlaylistFormat::url:
        return streamUrl(sequence, index) + '\n';
    case PlaylistFormat::ini:
        return "Ref" + n + '=' + streamUrl(sequence, index) + '\n';
    case PlaylistFormat::asx:
        return "<entry>\n  <title>" + words(sequence, 3) + "</title>\n  <ref href=\"" +
               mediaPath(sequence, index, '/') + "\"/>\n</entry>\n";
    case PlaylistFormat::wpl:
        return "<media src=\"" + mediaPath(sequence, index, '\\') + "\" tid=\"{" +
               number(sequence.next(100000)) + "}\"/>\n";
    }
    return QByteArray();
}

} // namespace

PlaylistDocument makePlaylistDocument(PlaylistFormat format, int maxBytes, int maxEntries) {
    const Shape shape = shapeOf(format);
    PlaylistDocument document;
    document.format = format;
    document.url = QStringLiteral("http://lists.example.com/generated/list.") + shape.suffix;
    document.contentType = shape.contentType;
    document.fileSuffix = shape.suffix;
    document.body.reserve(maxBytes);
    document.body = shape.header;

    Sequence sequence(0x5eed0000u + std::uint32_t(format));
    while (document.entries < maxEntries) {
        const QByteArray next = entry(format, sequence, document.entries);
        if (document.body.size() + next.size() + shape.footer.size() > maxBytes)
            break;
        document.body += next;
        ++document.entries;
    }
    document.body += shape.footer;
    return document;
}

QList<PlaylistFormat> allPlaylistFormats() {
    return {PlaylistFormat::m3u, PlaylistFormat::pls, PlaylistFormat::url,
            PlaylistFormat::ini, PlaylistFormat::asx, PlaylistFormat::wpl};
}

QString playlistFormatName(PlaylistFormat format) {
    switch (format) {
    case PlaylistFormat::m3u:
        return QStringLiteral("M3U");
    case PlaylistFormat::pls:
        return QStringLiteral("PLS");
    case PlaylistFormat::url:
        return QStringLiteral("URL");
    case PlaylistFormat::ini:
        return QStringLiteral("INI");
    case PlaylistFormat::asx:
        return QStringLiteral("ASX");
    case PlaylistFormat::wpl:
        return QStringLiteral("WPL");
    }
    return QString();
}

bool isXmlFormat(PlaylistFormat format) {
    return format == PlaylistFormat::asx || format == PlaylistFormat::wpl;
}

} // namespace zuvobench
