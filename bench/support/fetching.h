#pragma once

#include <QString>
#include <memory>

#include "model/cmnodes.h"
#include "playlistdocuments.h"
#include "support/httptestserver.h"
#include "timing.h"

class PlayListParseNode;

namespace zuvobench {

// One playlist document served from a loopback server in this process, and
// the two ways of fetching and parsing it that the fetch benchmarks compare.
//
// Thread: the event-loop thread; both ways run its event loop (the server
// answers from it) until they are done.
class FetchSubject {
public:
    struct Outcome {
        int rows = -1;          // -1: the fetch or the parse failed
        double seconds = 0;     // from the start of the fetch to the rows
        double curlSeconds = 0; // the floor only: the curl run's part
    };

    explicit FetchSubject(const PlaylistDocument& document);
    ~FetchSubject();
    Q_DISABLE_COPY(FetchSubject)

    // The library's way: a parse request to a parse node (on a registry of
    // its own, made and dropped around the call), which downloads the
    // document with its HttpClient and parses it. Returns the rows of the
    // list node it made. The registry is made and dropped outside the time.
    Outcome fetchAndParse();

    // The floor: the curl command-line tool writes the document to a file,
    // then a parse node parses that file (file: URL); rows -1 when curl is
    // missing or failed.
    Outcome curlAndParse();

    // Peak resident size of the largest child process so far (the curl runs),
    // in bytes.
    static std::size_t childPeakResident();

private:
    Outcome parseThroughNode(const QString& url, Clock::time_point start);

    PlaylistDocument m_document;
    zuvotest::HttpTestServer m_server;
    QString m_url;
    QString m_file;
};

} // namespace zuvobench
