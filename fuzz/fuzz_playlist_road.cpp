// Fuzzes the whole parse road of a fetched playlist: the body offered to the
// six parsers in the parse node's order of trial, with the content type
// chosen by the input's first byte, and the rows served by a list node.
#include <QStringList>

#include "fuzzsupport.h"
#include "model/cmreply.h"
#include "model/cmrequest.h"
#include "playlistparsenode.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zuvofuzz::setUp();
    static PlayListParseNode node(CMPath("/fuzz/playlistParser"));
    PlayListData& job = zuvofuzz::jobHolding(zuvofuzz::documentFrom(data, size));
    const PlayListParser::Result result = node.parse(zuvofuzz::requestRoles(), job);
    zuvofuzz::checkResult(result, zuvofuzz::UriForm::Any);
    zuvofuzz::checkSameResult(result, node.parse(zuvofuzz::requestRoles(), job));
    if (!result.ok)
        return 0;

    // Every row, by a request that runs past the end, as a player reads them.
    PlayListListNode list(CMPath("/fuzz/playlistParser/0"), result.rows);
    const QStringList roles = {ZuvoRoles::Title(), ZuvoRoles::MediaData(), ZuvoRoles::Type()};
    const CMReply<ZuvoRowsRoles> reply;
    list.getRowsRequest(CMGetRowsRequest(list.path(), 0, result.rows.size() + 1, 0, roles, reply));
    if (!reply.isFinished() || reply.value().rowsCount() != result.rows.size() ||
        reply.value().rows().toList().size() != result.rows.size())
        zuvofuzz::fail("the list node does not serve every row once");
    return 0;
}
