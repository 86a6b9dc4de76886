#include "playlistparser.h"

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "mimetypes.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("PlayListParser"));

// Playlist entries are playable items; consumers test for the value 3.
static_assert(ZuvoRolesType::audio == 3, "playlist entries are of the playable item kind");

PlayListParser::~PlayListParser() = default;

PlayListParser::Result PlayListParser::parse(const ZuvoRoles& roles, const PlayListData& data) {
    m_requestRoles = roles;
    return parse(data);
}

ZuvoRoles PlayListParser::createMediaRow(ZuvoRoles roles, const ZuvoMetaData& metaData,
                                         const ZuvoResource& resource) const {
    roles.setType(ZuvoRolesType::audio);

    ZuvoMetaData entryMetaData = metaData;
    entryMetaData.setServiceID(m_requestRoles.mediaData().metaData().serviceID());
    ZuvoMediaData mediaData;
    mediaData.setMetaData(entryMetaData);
    mediaData.setResources(ZuvoList<ZuvoResource>{resource});

    roles.setMediaData(mediaData);
    return roles;
}

ZuvoResource PlayListParser::entryResource(const QString& uri) {
    ZuvoResource resource;
    resource.setUri(uri);
    resource.setMimeType(MimeTypes::URIToMimeType(uri, MimeTypes::Audio::unknown()));
    return resource;
}

QVariant PlayListParser::createMediaRowVariant(const ZuvoRoles& roles, const ZuvoMetaData& metaData,
                                               const QString& uri) const {
    return createMediaRow(roles, metaData, entryResource(uri)).__variant();
}

bool PlayListParser::rowLimitReached(int rowCount) {
    if (rowCount < MaxRows)
        return false;
    LOG4CPLUS_WARN(logger, "Playlist has more than " << MaxRows << " entries; ignoring the rest");
    return true;
}
