#include "playlistparser.h"

#include "mimetypes.h"

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
