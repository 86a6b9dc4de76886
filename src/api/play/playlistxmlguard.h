#pragma once

#include <QByteArray>
#include <QXmlStreamReader>

// Bounds the work an untrusted XML playlist can cause, without changing which
// token the format decision sees.
//
// A document type declaration may declare entities and attribute defaults,
// which the reader expands: nested entities ("billion laughs") and many
// references to one large entity let a few kilobytes become gigabytes of
// text, even with the reader's own limit of 4096 characters per entity, and
// all references inside one text run or one start tag become a single
// token. The guard therefore:
// - before reading, finds in the body the first entity reference that takes
//   the characters produced by all references past MaxXmlExpansion, and ends
//   the document just before it (references inside comments or CDATA
//   sections count too; a document that needs them is not a playlist);
// - while reading, ends the document with an error once default attribute
//   values added by the declaration exceed MaxXmlExpansion characters, or an
//   element opens deeper than MaxXmlDepth levels (each open element costs the
//   reader memory).
// Either way the document then reads as an XML error at that point: the
// tokens before it, and so the rows found before it, stay. A bomb inside the
// format-deciding token itself (an attribute of the first element) ends the
// document before that token, as the reader's own limit does.
//
// Thread: one document at a time per instance.
class PlayListXmlGuard {
public:
    // Characters that entity references, and separately default attribute
    // values, may add to one document. The reader spends about 0.1 us on an
    // expanded attribute character, so this keeps one hostile document to
    // about a tenth of a second; playlists that use entities need far less.
    static constexpr qint64 MaxXmlExpansion = qint64(1) << 20;
    // Deepest element nesting an XML playlist may have.
    static constexpr int MaxXmlDepth = 256;

    // Resets the guard and gives reader (new, without data) the body: as it
    // stands, or, when a reference would exceed MaxXmlExpansion, its text
    // decoded as the reader would and cut before that reference.
    void start(QXmlStreamReader& reader, const QByteArray& body);

    // reader.readNext() under the limits above; returns the token type.
    QXmlStreamReader::TokenType readNext(QXmlStreamReader& reader);

    // To be called when reader.readElementText() consumed an end element.
    void elementEnded() { --m_depth; }

    // To be called after the last token: a document cut by start() that
    // ran out there gets the expansion error instead of the premature end.
    void finish(QXmlStreamReader& reader) const;

private:
    int m_depth = 0;           // open elements
    qint64 m_defaultChars = 0; // default attribute characters so far
    bool m_cut = false;        // start() cut the body short
};
