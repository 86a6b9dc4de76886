#include <gtest/gtest.h>

#include <QDataStream>
#include <QMetaType>
#include <QSet>
#include <functional>

#include "zuvo.h"

void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}
void PrintTo(const QVariant& value, std::ostream* os) {
    *os << zuvoVariantToLogString(value).toStdString();
}

namespace {

// One field of a record, as seen through its generated accessors.
template <typename R, typename T> struct Field {
    using Type = T;
    const char* name;
    T (R::*get)() const;
    void (R::*set)(const T&);
    bool (R::*isSet)() const;
    QString (*key)();
};

// RecordFields<R>::visit(v) calls v(Field<R, T>) for every field of R, in
// declaration order, straight from the record's own field list.
template <typename R> struct RecordFields;

#define TEST_VISIT_FIELD(Type, name, Name)                                                                   \
    visitor(Field<R, Type>{#name, &R::name, &R::set##Name, &R::isSet##Name, &R::Name});
#define TEST_RECORD(Record, FIELDS)                                                                          \
    template <> struct RecordFields<Record> {                                                                \
        using R = Record;                                                                                    \
        static const char* name() { return #Record; }                                                        \
        template <typename V> static void visit(V&& visitor) { FIELDS(TEST_VISIT_FIELD) }                    \
    };

// clang-format off
#define TEST_ALL_RECORDS(X)                                                                                  \
    X(ZuvoValue, ZUVO_VALUE_FIELDS) X(ZuvoRowsRoles, ZUVO_ROWS_ROLES_FIELDS)                                 \
    X(ZuvoResource, ZUVO_RESOURCE_FIELDS) X(ZuvoRoles, ZUVO_ROLES_FIELDS)                                    \
    X(ZuvoMetaData, ZUVO_META_DATA_FIELDS) X(ZuvoMediaData, ZUVO_MEDIA_DATA_FIELDS)                          \
    X(ZuvoMetaDataControl, ZUVO_CONTROL_FLAG_FIELDS)                                                         \
    X(ZuvoPlayLogicPlayModesSupported, ZUVO_PLAY_LOGIC_PLAY_MODES_SUPPORTED_FIELDS)                          \
    X(ZuvoPlayLogicControls, ZUVO_PLAY_LOGIC_CONTROLS_FIELDS) X(ZuvoError, ZUVO_ERROR_FIELDS)                \
    X(ZuvoPlayLogicStatus, ZUVO_PLAY_LOGIC_STATUS_FIELDS) X(ZuvoPlayLogicData, ZUVO_PLAY_LOGIC_DATA_FIELDS)  \
    X(ZuvoPlayLogicControlArgs, ZUVO_PLAY_LOGIC_CONTROL_ARGS_FIELDS)                                         \
    X(ZuvoPlayLogicPlayArgs, ZUVO_PLAY_LOGIC_PLAY_ARGS_FIELDS)                                               \
    X(ZuvoPlayLogicStopArgs, ZUVO_PLAY_LOGIC_STOP_ARGS_FIELDS)                                               \
    X(ZuvoPlayLogicPreviousArgs, ZUVO_PLAY_LOGIC_PREVIOUS_ARGS_FIELDS)                                       \
    X(ZuvoPlayLogicSeekArgs, ZUVO_PLAY_LOGIC_SEEK_ARGS_FIELDS)                                               \
    X(ZuvoPlayLogicSetCurrentTrackArgs, ZUVO_PLAY_LOGIC_SET_CURRENT_TRACK_ARGS_FIELDS)                       \
    X(ZuvoPlayLogicChangePlayModeArgs, ZUVO_PLAY_LOGIC_CHANGE_PLAY_MODE_ARGS_FIELDS)                         \
    X(ZuvoPlayLogicPingArgs, ZUVO_PLAY_LOGIC_PING_ARGS_FIELDS)                                               \
    X(ZuvoStreamerPlayArgs, ZUVO_STREAMER_PLAY_ARGS_FIELDS)                                                  \
    X(ZuvoStreamerSeekPosition, ZUVO_STREAMER_SEEK_POSITION_FIELDS)                                          \
    X(ZuvoStreamerSetAttributesArgs, ZUVO_STREAMER_SET_ATTRIBUTES_ARGS_FIELDS)                               \
    X(ZuvoStreamerData, ZUVO_STREAMER_DATA_FIELDS)                                                           \
    X(ZuvoNotificationPlayerItem, ZUVO_NOTIFICATION_PLAYER_ITEM_FIELDS)                                      \
    X(ZuvoNotificationPlayerResponse, ZUVO_NOTIFICATION_PLAYER_RESPONSE_FIELDS)                              \
    X(ZuvoNotificationDisplayItem, ZUVO_NOTIFICATION_DISPLAY_ITEM_FIELDS)
// clang-format on
TEST_ALL_RECORDS(TEST_RECORD)

template <typename T> struct IsList : std::false_type {};
template <typename T> struct IsList<ZuvoList<T>> : std::true_type {};

// Nesting below this depth is cut short (the record types are recursive):
// such a record holds one key no field reads, which must survive as well.
constexpr int kMaxDepth = 5;

template <typename T> T sample(int& seed, int depth);

// A record with every field set to a value that differs from its default and
// from the other fields'; each setter is checked to be read back by its getter.
template <typename R> R filledRecord(int& seed, int depth) {
    R record;
    if (depth > kMaxDepth) {
        record.__insert(QStringLiteral("opaque"), seed++);
        return record;
    }
    RecordFields<R>::visit([&](auto field) {
        using T = typename decltype(field)::Type;
        const T value = sample<T>(seed, depth + 1);
        (record.*field.set)(value);
        EXPECT_EQ((record.*field.get)(), value) << RecordFields<R>::name() << "::" << field.name;
        EXPECT_NE(value, T()) << field.name;
    });
    return record;
}

template <typename T> T sample(int& seed, int depth) {
    const int n = seed++;
    if constexpr (std::is_base_of_v<ZuvoHash, T>) {
        return filledRecord<T>(seed, depth);
    } else if constexpr (IsList<T>::value) {
        return T{sample<typename T::value_type>(seed, depth), sample<typename T::value_type>(seed, depth)};
    } else if constexpr (std::is_same_v<T, QVariant>) {
        return QVariantHash{{QStringLiteral("n"), n},
                            {QStringLiteral("list"), QVariantList{n, QStringLiteral("x")}}};
    } else if constexpr (std::is_same_v<T, CMPath>) {
        return CMPath(QStringLiteral("/svc/item %1?from=%1").arg(n));
    } else if constexpr (std::is_same_v<T, QString>) {
        return QStringLiteral("text-%1").arg(n);
    } else if constexpr (std::is_same_v<T, bool>) {
        return true;
    } else if constexpr (std::is_enum_v<T>) {
        return static_cast<T>(1); // every enumeration has a value 1
    } else if constexpr (std::is_same_v<T, qint64>) {
        return (Q_INT64_C(1) << 40) + n; // beyond the range of int
    } else if constexpr (std::is_floating_point_v<T>) {
        return n + 0.25;
    } else {
        return static_cast<T>(100 + n);
    }
}

// A stored value of the wrong type for a field of type T.
template <typename T> QVariant wrongTyped() {
    if constexpr (std::is_same_v<T, QString> || std::is_same_v<T, CMPath> || IsList<T>::value)
        return 5;
    else if constexpr (std::is_same_v<T, bool>)
        return 1; // no conversion to bool either
    else
        return QStringLiteral("12"); // numbers, enumerations, records
}

// Every field of every record: set to a value of its own, read back by its
// getter, kept through a QVariant, a QVariantHash and a serialised wire copy
// (as across a process boundary); absent or of a wrong type, it reads as its
// type's default.
template <typename R> void checkRecord() {
    int seed = 1;
    const R record = filledRecord<R>(seed, 0);
    const QVariant variant = record.__variant();
    ASSERT_EQ(variant.userType(), QMetaType::QVariantHash);
    const R fromHash(variant.toHash());
    QByteArray wire;
    QDataStream out(&wire, QIODevice::WriteOnly);
    out << variant;
    QDataStream in(wire);
    QVariant received;
    in >> received;
    const R fromWire(received.toHash());
    EXPECT_EQ(fromHash, record);
    EXPECT_EQ(QVariant::fromValue(record).template value<R>(), record);

    R wrong;
    RecordFields<R>::visit(
        [&](auto field) { wrong.__insert(field.key(), wrongTyped<typename decltype(field)::Type>()); });
    const R missing;
    RecordFields<R>::visit([&](auto field) {
        using T = typename decltype(field)::Type;
        EXPECT_EQ((fromWire.*field.get)(), (record.*field.get)()) << field.name;
        EXPECT_TRUE((fromHash.*field.isSet)()) << field.name;
        EXPECT_FALSE((missing.*field.isSet)()) << field.name;
        EXPECT_EQ((missing.*field.get)(), T()) << field.name;
        if constexpr (std::is_same_v<T, QVariant>)
            EXPECT_EQ((wrong.*field.get)(), wrongTyped<T>()) << field.name; // any value is the value
        else
            EXPECT_EQ((wrong.*field.get)(), T()) << field.name;
    });
}

TEST(Records, EveryFieldRoundTripsAndReadsAsItsDefaultWhenAbsentOrMistyped){
#define TEST_CHECK_RECORD(Record, FIELDS)                                                                    \
    {                                                                                                        \
        SCOPED_TRACE(#Record);                                                                               \
        checkRecord<Record>();                                                                               \
    }
    TEST_ALL_RECORDS(TEST_CHECK_RECORD)}

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
    const auto resources = data.trackRoles().mediaData().resources();
    ASSERT_EQ(resources.size(), 2);
    EXPECT_EQ(resources[0].uri(), QStringLiteral("http://a/1"));
    EXPECT_TRUE(resources[1].isEmpty());
    EXPECT_EQ(data.trackRoles().title(), QStringLiteral("T"));
    EXPECT_EQ(data.trackRoles().mediaData().activeResource().validUntil(), Q_INT64_C(1700000000123));
    EXPECT_EQ(data.status().duration(), Q_INT64_C(1000000000000));
    EXPECT_EQ(static_cast<int>(data.state()), 99);
    EXPECT_TRUE(ZuvoPlayLogicState::toString(data.state()).isEmpty());
    EXPECT_EQ(ZuvoPlayLogicData(H{{"state", 3.0}}).state(), ZuvoPlayLogicState::paused);
}

// A play logic looks an item's control up in its published `controls` by the
// meta-data control key; each flag must land on the same field in both.
TEST(Records, ControlFlagsReadAlikeInMetaDataAndPublishedControls) {
    QStringList flags;
#define TEST_FLAG_KEY(Type, name, Name) flags.append(ZuvoMetaDataControl::Name());
    ZUVO_CONTROL_FLAG_FIELDS(TEST_FLAG_KEY)
    for (const QString& flag : flags) {
        ZuvoMetaDataControl allowed;
        allowed.__insert(flag, true);
        const ZuvoPlayLogicControls controls(allowed.__hash());
        int set = 0;
        RecordFields<ZuvoPlayLogicControls>::visit([&](auto field) {
            if constexpr (std::is_same_v<typename decltype(field)::Type, bool>)
                set += (controls.*field.get)() ? 1 : 0;
        });
        EXPECT_EQ(set, 1) << flag.toStdString();
    }
}

// Each fixed path must survive encoding unchanged (else the node it names is
// not the one looked up), and the relative ones must name distinct nodes
// under their base: two commands or two values on one node would mix up.
TEST(Paths, FixedPathsAreCanonicalAndDistinctUnderTheirBase) {
    const CMPath streamer = ZuvoStreamerDefaultPrefixPath();
    const CMPath data = streamer + ZuvoStreamerDataPath();
    const QList<QPair<CMPath, QList<CMPath>>> groups = {
        {CMPath("/"),
         {ZuvoPlayerPath(), ZuvoPlayerContentPlayLogicPlaylistPath(), ZuvoPlayerStreamBufferingConfigPath(),
          streamer, ZuvoNotificationPlayerEnqueuePath(), ZuvoNotificationPlayerCancelPath(),
          ZuvoNotificationDisplayOpenPath()}},
        {streamer,
         {ZuvoStreamerPlayPath(), ZuvoStreamerSetNextMediaPath(), ZuvoStreamerClearNextMediaPath(),
          ZuvoStreamerPausePath(), ZuvoStreamerResumePath(), ZuvoStreamerStopPath(), ZuvoStreamerSeekPath(),
          ZuvoStreamerSetAttributesPath(), ZuvoStreamerDataPath()}},
        {data,
         {ZuvoPlayLogicPlayTimePath(), ZuvoPlayLogicPlayBytePath(), ZuvoPlayLogicBufferingLevelPath(),
          ZuvoPlayLogicPlayModePath(), ZuvoPlayLogicBufferBytesPath()}},
    };
    for (const auto& group : groups) {
        QSet<QString> nodes;
        for (const CMPath& path : group.second) {
            EXPECT_FALSE(path.isEmpty() || path.isRoot() || path.hasParams()) << path;
            EXPECT_EQ(CMPath::fromEncoded(path.toEncoded()), path);
            const CMPath full = group.first + path;
            EXPECT_EQ(full.segments().size(), group.first.segments().size() + path.segments().size()) << full;
            nodes.insert(full.toEncoded());
        }
        EXPECT_EQ(nodes.size(), group.second.size()) << group.first;
    }
}

TEST(Records, ErrorNamesAreDistinctAndRecordsKnownByNameAfterRegistration) {
    const QStringList names = zuvoPlaylogicErrorNames();
    EXPECT_EQ(QSet<QString>(names.begin(), names.end()).size(), names.size());
    EXPECT_FALSE(names.contains(QString()));

    zuvoRegisterMetaTypes();
    EXPECT_EQ(QMetaType::type("ZuvoPlayLogicPlayId"), int(QMetaType::QString));
    ZuvoStreamerData data; // copied through the name, as a queued call does
    data.setPlaybackId(7);
    const int id = QMetaType::type("ZuvoStreamerData");
    ASSERT_NE(id, int(QMetaType::UnknownType));
    void* copy = QMetaType::create(id, &data);
    EXPECT_EQ(*static_cast<ZuvoStreamerData*>(copy), data);
    QMetaType::destroy(id, copy);
}

} // namespace
