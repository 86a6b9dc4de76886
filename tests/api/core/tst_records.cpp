#include <gtest/gtest.h>

#include <QDataStream>
#include <QMetaType>
#include <QSet>
#include <tuple>

#include "support/records.h"
#include "zuvo.h"

void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}
void PrintTo(const QVariant& value, std::ostream* os) {
    *os << zuvoVariantToLogString(value).toStdString();
}

namespace {

// Every record field goes through ZuvoFieldCodec<T> of its type: stored,
// serialised (the stored form holds plain Qt types only: records travel as
// hashes, paths as text, enumerations as int) and read back, a value is
// unchanged; absent, or stored with a wrong type, it reads as T's default.
template <typename T> void roundTrip(const T& value, const QVariant& wrong) {
    QByteArray wire;
    QDataStream out(&wire, QIODevice::WriteOnly);
    out << ZuvoFieldCodec<T>::write(value);
    QVariant received;
    QDataStream in(wire);
    in >> received;
    EXPECT_EQ(ZuvoFieldCodec<T>::read(received), value);
    EXPECT_EQ(ZuvoFieldCodec<T>::read(QVariant()), T());
    if constexpr (std::is_same_v<T, QVariant>)
        EXPECT_EQ(ZuvoFieldCodec<T>::read(wrong), wrong); // any value is the value
    else
        EXPECT_EQ(ZuvoFieldCodec<T>::read(wrong), T());
}

TEST(Records, EveryFieldTypeRoundTripsAndReadsAsItsDefaultWhenAbsentOrMistyped) {
    ZuvoResource resource;
    resource.setUri(QStringLiteral("http://a/1"));
    resource.__insert(QStringLiteral("opaque"), 3); // a key no field reads survives
    ZuvoMetaData meta;
    meta.setMatchingMediaRoles({zuvotest::rolesTitled(QStringLiteral("x"))});
    meta.setPrePlayPath(CMPath("/svc/item 1?from=1"));
    ZuvoMediaData media;
    media.setMetaData(meta);
    media.setResources({resource, ZuvoResource()});
    const QString number = QStringLiteral("12");
    roundTrip(QStringLiteral("text"), 5);
    roundTrip(true, 1); // no conversion to bool either
    roundTrip(7, number);
    roundTrip(Q_INT64_C(1) << 40, number); // beyond the range of int
    roundTrip(0.25, number);
    roundTrip(ZuvoPlayLogicState::paused, number);
    roundTrip(QVariant(QVariantHash{{QStringLiteral("list"), QVariantList{1, QStringLiteral("x")}}}), number);
    roundTrip(CMPath("/svc/item 1?from=1"), 5);
    roundTrip(media, number);
    roundTrip(media.resources(), 5);
}

// The accessors of a record (and the out-of-line ones of ZuvoRoles) use the
// field's published key.
TEST(Records, AccessorsUseTheFieldsKey) {
    ZuvoRoles roles;
    roles.setTitle(QStringLiteral("T"));
    roles.setType(ZuvoRolesType::container);
    ZuvoPlayLogicPlayArgs args;
    args.setControl(ZuvoPlayLogicControl::pause);
    args.setTrackRoles(roles);
    EXPECT_TRUE(roles.isSetTitle() && !roles.isSetPath() && ZuvoRoles::Title() == QLatin1String("title"));
    EXPECT_EQ(args.__hash(),
              (QVariantHash{{"control", 1}, {"trackRoles", QVariantHash{{"title", "T"}, {"type", 1}}}}));
    EXPECT_EQ(QVariant::fromValue(args).value<ZuvoPlayLogicPlayArgs>(), args);
    EXPECT_NE(args, ZuvoPlayLogicPlayArgs());
}

// What the generic wrong-type check does not cover: lists with bad elements,
// unknown enumerators, maps for hashes, numbers in other numeric types.
TEST(Records, MalformedNestedInputGivesDefaults) {
    using H = QVariantHash;
    using M = QVariantMap;
    const ZuvoPlayLogicData data(H{
        {"trackRoles", M{{"title", "T"},
                         {"mediaData", M{{"resources", QVariantList{H{{"uri", "http://a/1"}}, "junk"}},
                                         {"activeResource", H{{"validUntil", Q_INT64_C(1700000000123)}}}}}}},
        {"status", H{{"duration", 1e12}}},
        {"state", 99}});
    const ZuvoMediaData media = data.trackRoles().mediaData();
    ASSERT_EQ(media.resources().size(), 2);
    EXPECT_EQ(std::make_tuple(media.resources()[0].uri(), media.resources()[1].isEmpty(),
                              data.trackRoles().title(), media.activeResource().validUntil(),
                              data.status().duration()),
              std::make_tuple(QStringLiteral("http://a/1"), true, QStringLiteral("T"),
                              Q_INT64_C(1700000000123), Q_INT64_C(1000000000000)));
    EXPECT_EQ(static_cast<int>(data.state()), 99);
    EXPECT_TRUE(ZuvoPlayLogicState::toString(data.state()).isEmpty());
    EXPECT_EQ(ZuvoPlayLogicData(H{{"state", 3.0}}).state(), ZuvoPlayLogicState::paused);
}

// Names are compared by clients; records travel through queued calls by name.
TEST(Records, ErrorNamesAreDistinctAndRecordsKnownByNameAfterRegistration) {
    const QStringList names = zuvoPlaylogicErrorNames();
    EXPECT_EQ(QSet<QString>(names.begin(), names.end()).size(), names.size());
    EXPECT_FALSE(names.contains(QString()));
    zuvoRegisterMetaTypes();
    EXPECT_EQ(QMetaType::type("ZuvoPlayLogicPlayId"), int(QMetaType::QString));
    ZuvoStreamerData data;
    data.setPlaybackId(7);
    const int id = QMetaType::type("ZuvoStreamerData");
    ASSERT_NE(id, int(QMetaType::UnknownType));
    void* copy = QMetaType::create(id, &data);
    EXPECT_EQ(*static_cast<ZuvoStreamerData*>(copy), data);
    QMetaType::destroy(id, copy);
}

} // namespace
