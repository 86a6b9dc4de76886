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

TEST_RECORD(ZuvoValue, ZUVO_VALUE_FIELDS)
TEST_RECORD(ZuvoRowsRoles, ZUVO_ROWS_ROLES_FIELDS)
TEST_RECORD(ZuvoResource, ZUVO_RESOURCE_FIELDS)
TEST_RECORD(ZuvoRoles, ZUVO_ROLES_FIELDS)
TEST_RECORD(ZuvoMetaData, ZUVO_META_DATA_FIELDS)
TEST_RECORD(ZuvoMediaData, ZUVO_MEDIA_DATA_FIELDS)
TEST_RECORD(ZuvoMetaDataControl, ZUVO_CONTROL_FLAG_FIELDS)
TEST_RECORD(ZuvoPlayLogicPlayModesSupported, ZUVO_PLAY_LOGIC_PLAY_MODES_SUPPORTED_FIELDS)
TEST_RECORD(ZuvoPlayLogicControls, ZUVO_PLAY_LOGIC_CONTROLS_FIELDS)
TEST_RECORD(ZuvoError, ZUVO_ERROR_FIELDS)
TEST_RECORD(ZuvoPlayLogicStatus, ZUVO_PLAY_LOGIC_STATUS_FIELDS)
TEST_RECORD(ZuvoPlayLogicData, ZUVO_PLAY_LOGIC_DATA_FIELDS)
TEST_RECORD(ZuvoPlayLogicControlArgs, ZUVO_PLAY_LOGIC_CONTROL_ARGS_FIELDS)
TEST_RECORD(ZuvoPlayLogicPlayArgs, ZUVO_PLAY_LOGIC_PLAY_ARGS_FIELDS)
TEST_RECORD(ZuvoPlayLogicStopArgs, ZUVO_PLAY_LOGIC_STOP_ARGS_FIELDS)
TEST_RECORD(ZuvoPlayLogicPreviousArgs, ZUVO_PLAY_LOGIC_PREVIOUS_ARGS_FIELDS)
TEST_RECORD(ZuvoPlayLogicSeekArgs, ZUVO_PLAY_LOGIC_SEEK_ARGS_FIELDS)
TEST_RECORD(ZuvoPlayLogicSetCurrentTrackArgs, ZUVO_PLAY_LOGIC_SET_CURRENT_TRACK_ARGS_FIELDS)
TEST_RECORD(ZuvoPlayLogicChangePlayModeArgs, ZUVO_PLAY_LOGIC_CHANGE_PLAY_MODE_ARGS_FIELDS)
TEST_RECORD(ZuvoPlayLogicPingArgs, ZUVO_PLAY_LOGIC_PING_ARGS_FIELDS)
TEST_RECORD(ZuvoStreamerPlayArgs, ZUVO_STREAMER_PLAY_ARGS_FIELDS)
TEST_RECORD(ZuvoStreamerSeekPosition, ZUVO_STREAMER_SEEK_POSITION_FIELDS)
TEST_RECORD(ZuvoStreamerSetAttributesArgs, ZUVO_STREAMER_SET_ATTRIBUTES_ARGS_FIELDS)
TEST_RECORD(ZuvoStreamerData, ZUVO_STREAMER_DATA_FIELDS)
TEST_RECORD(ZuvoNotificationPlayerItem, ZUVO_NOTIFICATION_PLAYER_ITEM_FIELDS)
TEST_RECORD(ZuvoNotificationPlayerResponse, ZUVO_NOTIFICATION_PLAYER_RESPONSE_FIELDS)
TEST_RECORD(ZuvoNotificationDisplayItem, ZUVO_NOTIFICATION_DISPLAY_ITEM_FIELDS)

using AllRecords =
    ::testing::Types<ZuvoValue, ZuvoRowsRoles, ZuvoResource, ZuvoRoles, ZuvoMetaData, ZuvoMediaData,
                     ZuvoMetaDataControl, ZuvoPlayLogicPlayModesSupported, ZuvoPlayLogicControls, ZuvoError,
                     ZuvoPlayLogicStatus, ZuvoPlayLogicData, ZuvoPlayLogicControlArgs, ZuvoPlayLogicPlayArgs,
                     ZuvoPlayLogicStopArgs, ZuvoPlayLogicPreviousArgs, ZuvoPlayLogicSeekArgs,
                     ZuvoPlayLogicSetCurrentTrackArgs, ZuvoPlayLogicChangePlayModeArgs, ZuvoPlayLogicPingArgs,
                     ZuvoStreamerPlayArgs, ZuvoStreamerSeekPosition, ZuvoStreamerSetAttributesArgs,
                     ZuvoStreamerData, ZuvoNotificationPlayerItem, ZuvoNotificationPlayerResponse,
                     ZuvoNotificationDisplayItem>;

struct RecordName {
    template <typename R> static std::string GetName(int) { return RecordFields<R>::name(); }
};

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

template <typename R> class RecordTest : public ::testing::Test {};
TYPED_TEST_SUITE(RecordTest, AllRecords, RecordName);

TYPED_TEST(RecordTest, RoundTripThroughVariantKeepsEveryField) {
    using R = TypeParam;
    int seed = 1;
    const R record = filledRecord<R>(seed, 0);

    const QVariant variant = record.__variant();
    ASSERT_EQ(variant.userType(), QMetaType::QVariantHash);
    const R fromHash(variant.toHash());
    const R fromMetaType = QVariant::fromValue(record).template value<R>();
    // Serialised, as across a process boundary: only plain variant types survive.
    QByteArray wire;
    QDataStream out(&wire, QIODevice::WriteOnly);
    out << variant;
    QDataStream in(wire);
    QVariant received;
    in >> received;
    ASSERT_EQ(in.status(), QDataStream::Ok);
    const R fromWire(received.toHash());

    EXPECT_EQ(fromHash, record);
    EXPECT_EQ(fromMetaType, record);
    RecordFields<R>::visit([&](auto field) {
        EXPECT_EQ((fromHash.*field.get)(), (record.*field.get)()) << field.name;
        EXPECT_EQ((fromWire.*field.get)(), (record.*field.get)()) << field.name;
        EXPECT_TRUE((fromHash.*field.isSet)()) << field.name;
    });
}

TYPED_TEST(RecordTest, MissingOrWrongTypedFieldsReadAsDefaults) {
    using R = TypeParam;
    R wrong;
    RecordFields<R>::visit(
        [&](auto field) { wrong.__insert(field.key(), wrongTyped<typename decltype(field)::Type>()); });
    const R missing;

    RecordFields<R>::visit([&](auto field) {
        using T = typename decltype(field)::Type;
        EXPECT_FALSE((missing.*field.isSet)()) << field.name;
        EXPECT_EQ((missing.*field.get)(), T()) << field.name;
        if constexpr (std::is_same_v<T, QVariant>)
            EXPECT_EQ((wrong.*field.get)(), wrongTyped<T>()) << field.name; // any value is the value
        else
            EXPECT_EQ((wrong.*field.get)(), T()) << field.name;
    });
}

// What the generic wrong-type test does not cover: lists with bad elements,
// numbers in other numeric types, unknown enumerators, maps for hashes.
TEST(RecordReading, MalformedNestedInputGivesDefaultsWithoutCrashing) {
    using H = QVariantHash;
    using M = QVariantMap;
    struct Case {
        const char* what;
        QVariantHash input;
        std::function<void(const ZuvoPlayLogicData&)> check;
    };
    const QList<Case> cases = {
        {"list with elements of the wrong type keeps its length",
         {{"trackRoles",
           H{{"mediaData", H{{"resources", QVariantList{H{{"uri", "http://a/1"}}, "junk", 7}}}}}}},
         [](const ZuvoPlayLogicData& d) {
             const auto resources = d.trackRoles().mediaData().resources();
             ASSERT_EQ(resources.size(), 3);
             EXPECT_EQ(resources[0].uri(), QStringLiteral("http://a/1"));
             EXPECT_TRUE(resources[1].isEmpty());
             EXPECT_TRUE(resources[2].isEmpty());
         }},
        {"enumeration given as a double",
         {{"state", 3.0}},
         [](const ZuvoPlayLogicData& d) { EXPECT_EQ(d.state(), ZuvoPlayLogicState::paused); }},
        {"enumeration out of range",
         {{"state", 99}},
         [](const ZuvoPlayLogicData& d) {
             EXPECT_EQ(static_cast<int>(d.state()), 99);
             EXPECT_TRUE(ZuvoPlayLogicState::toString(d.state()).isEmpty());
         }},
        {"nested records given as maps",
         {{"trackRoles",
           M{{"title", "T"},
             {"mediaData", M{{"metaData", M{{"serviceID", "svc"}, {"prePlayPath", "/svc/pre"}}}}}}}},
         [](const ZuvoPlayLogicData& d) {
             EXPECT_EQ(d.trackRoles().title(), QStringLiteral("T"));
             EXPECT_EQ(d.trackRoles().mediaData().metaData().serviceID(), QStringLiteral("svc"));
             EXPECT_EQ(d.trackRoles().mediaData().metaData().prePlayPath(), CMPath("/svc/pre"));
         }},
        {"large times, also as a double",
         {{"status", H{{"duration", 1e12}}},
          {"trackRoles",
           H{{"mediaData", H{{"activeResource", H{{"validUntil", Q_INT64_C(1700000000123)}}}}}}}},
         [](const ZuvoPlayLogicData& d) {
             EXPECT_EQ(d.status().duration(), Q_INT64_C(1000000000000));
             EXPECT_EQ(d.trackRoles().mediaData().activeResource().validUntil(), Q_INT64_C(1700000000123));
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        c.check(ZuvoPlayLogicData(c.input));
    }
}

// A play logic looks an item's control up in its published `controls` by the
// meta-data control key; each flag must land on the same field in both.
TEST(RecordKeys, ControlFlagsReadAlikeInMetaDataAndPublishedControls) {
    QStringList flags;
#define TEST_FLAG_KEY(Type, name, Name) flags.append(ZuvoMetaDataControl::Name());
    ZUVO_CONTROL_FLAG_FIELDS(TEST_FLAG_KEY)
#undef TEST_FLAG_KEY
    for (const QString& flag : flags) {
        SCOPED_TRACE(flag.toStdString());
        ZuvoMetaDataControl allowed;
        allowed.__insert(flag, true);
        ZuvoPlayLogicData data;
        data.setControls(ZuvoPlayLogicControls(allowed.__hash()));
        int set = 0;
        RecordFields<ZuvoPlayLogicControls>::visit([&](auto field) {
            if constexpr (std::is_same_v<typename decltype(field)::Type, bool>)
                set += (data.controls().*field.get)() ? 1 : 0;
        });
        EXPECT_EQ(set, 1);
    }
}

// Every command's arguments announce their command through the common view,
// and a ping's number is published under the key it arrived with.
TEST(RecordKeys, CommandArgumentsReadThroughTheCommonView) {
    const auto check = [](auto args) {
        args.setControl(ZuvoPlayLogicControl::seekTime);
        EXPECT_EQ(ZuvoPlayLogicControlArgs(args.__hash()).control(), ZuvoPlayLogicControl::seekTime) << args;
    };
    check(ZuvoPlayLogicPlayArgs());
    check(ZuvoPlayLogicStopArgs());
    check(ZuvoPlayLogicPreviousArgs());
    check(ZuvoPlayLogicSeekArgs());
    check(ZuvoPlayLogicSetCurrentTrackArgs());
    check(ZuvoPlayLogicChangePlayModeArgs());
    check(ZuvoPlayLogicPingArgs());

    ZuvoPlayLogicPingArgs ping;
    ping.setPingSequenceNumber(17);
    EXPECT_EQ(ZuvoPlayLogicData(ping.__hash()).pingSequenceNumber(), 17);
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

TEST(ErrorNames, NamesAreDistinctAndNonEmpty) {
    const QStringList names = zuvoPlaylogicErrorNames();
    EXPECT_EQ(QSet<QString>(names.begin(), names.end()).size(), names.size());
    for (const QString& name : names)
        EXPECT_FALSE(name.trimmed().isEmpty());
}

TEST(MetaTypes, RecordsAreKnownByNameAfterRegistration) {
    zuvoRegisterMetaTypes();
    EXPECT_EQ(QMetaType::type("ZuvoPlayLogicPlayId"), int(QMetaType::QString));

    // A copy made through the name, as a queued call does.
    ZuvoStreamerData data;
    data.setPlaybackId(7);
    const int id = QMetaType::type("ZuvoStreamerData");
    ASSERT_NE(id, int(QMetaType::UnknownType));
    void* copy = QMetaType::create(id, &data);
    EXPECT_EQ(*static_cast<ZuvoStreamerData*>(copy), data);
    QMetaType::destroy(id, copy);
}

} // namespace
