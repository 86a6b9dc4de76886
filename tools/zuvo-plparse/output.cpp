#include "output.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QVector>
#include <algorithm>

QByteArray plParseJson(const PlParseOutcome& outcome) {
    QJsonObject object;
    object.insert(QStringLiteral("ok"), outcome.ok);
    if (outcome.ok) {
        QJsonArray rows;
        for (const PlParseRow& row : outcome.rows) {
            rows.append(QJsonObject{{QStringLiteral("title"), row.title},
                                    {QStringLiteral("uri"), row.uri},
                                    {QStringLiteral("mimeType"), row.mimeType},
                                    {QStringLiteral("artist"), row.artist}});
        }
        object.insert(QStringLiteral("rows"), rows);
    } else {
        object.insert(QStringLiteral("error"),
                      QJsonObject{{QStringLiteral("name"), outcome.errorName},
                                  {QStringLiteral("message"), outcome.errorMessage}});
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

QByteArray plParseTable(const PlParseOutcome& outcome) {
    if (!outcome.ok)
        return QStringLiteral("error: %1: %2\n").arg(outcome.errorName, outcome.errorMessage).toUtf8();

    QVector<QStringList> lines;
    lines.append({QStringLiteral("#"), QStringLiteral("Title"), QStringLiteral("URI"),
                  QStringLiteral("MIME type"), QStringLiteral("Artist")});
    int number = 0;
    for (const PlParseRow& row : outcome.rows)
        lines.append({QString::number(++number), row.title, row.uri, row.mimeType, row.artist});

    QVector<int> widths(lines.first().size(), 0);
    for (const QStringList& line : qAsConst(lines)) {
        for (int column = 0; column < line.size(); ++column)
            widths[column] = std::max(widths[column], int(line.at(column).size()));
    }
    QString text;
    for (const QStringList& line : qAsConst(lines)) {
        QString out;
        for (int column = 0; column < line.size(); ++column) {
            // Control characters (a stray CR in an entry) would garble the table.
            QString cell = line.at(column);
            for (QChar& c : cell) {
                if (c.category() == QChar::Other_Control)
                    c = QChar(0xFFFD);
            }
            out += column == 0 ? cell.rightJustified(widths[column]) : cell.leftJustified(widths[column]);
            if (column + 1 < line.size())
                out += QStringLiteral("  ");
        }
        while (out.endsWith(QLatin1Char(' ')))
            out.chop(1);
        text += out + QLatin1Char('\n');
    }
    text += QStringLiteral("%1 row(s)\n").arg(outcome.rows.size());
    return text.toUtf8();
}
