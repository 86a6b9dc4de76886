#pragma once

#include <QDebug>
#include <QList>
#include <QString>
#include <QVariant>
#include <QVariantHash>
#include <QVariantList>
#include <ostream>
#include <type_traits>

// Record machinery of the host framework.
//
// Every record is a thin typed view over a string-keyed QVariantHash. A
// record declares its fields once, as an X-macro list of
// F(Type, getter, KeyName), and ZUVO_RECORD derives for each field:
//   Type getter() const;            // absent or wrong-typed field: Type's default
//   void setKeyName(const Type&);
//   bool isSetKeyName() const;      // whether the hash holds the key
//   static QString KeyName();       // the hash key, the getter's name
// Nested records are stored as hashes, ZuvoList<T> as a QVariantList of the
// elements' stored forms, enumerations as int.

class ZuvoHash {
public:
    ZuvoHash() = default;
    explicit ZuvoHash(const QVariantHash& hash)
        : m_hash(hash) {}

    QVariant __variant() const { return QVariant(m_hash); }
    const QVariantHash& __hash() const { return m_hash; }
    bool __contains(const QString& key) const { return m_hash.contains(key); }
    void __remove(const QString& key) { m_hash.remove(key); }
    bool __isEmpty() const { return m_hash.isEmpty(); }
    bool isEmpty() const { return m_hash.isEmpty(); }
    void clear() { m_hash.clear(); }

    QVariant __value(const QString& key) const { return m_hash.value(key); }
    void __insert(const QString& key, const QVariant& value) { m_hash.insert(key, value); }

    bool operator==(const ZuvoHash& other) const { return m_hash == other.m_hash; }
    bool operator!=(const ZuvoHash& other) const { return m_hash != other.m_hash; }

    // Compact single-line text form used in log lines ({"key": value, ...},
    // keys sorted so that equal records print alike).
    QString toLogString() const;

protected:
    QVariantHash m_hash;
};

std::ostream& operator<<(std::ostream& stream, const ZuvoHash& record);
QDebug operator<<(QDebug debug, const ZuvoHash& record);

// Text form of any QVariant as used in log lines (hashes and lists nested).
QString zuvoVariantToLogString(const QVariant& value);

// A list of records or values, stored as a QVariantList.
template <typename T> class ZuvoList : public QList<T> {
public:
    using QList<T>::QList;
    ZuvoList() = default;
    ZuvoList(const QList<T>& other)
        : QList<T>(other) {}
};

namespace zuvo_detail {
bool isNumeric(const QVariant& value);
template <typename T> struct IsZuvoList : std::false_type {};
template <typename T> struct IsZuvoList<ZuvoList<T>> : std::true_type {};
QVariantHash toHash(const QVariant& value); // hash or map; anything else gives an empty hash
} // namespace zuvo_detail

// Conversion of one field between its C++ type and its stored QVariant. A
// stored value of the wrong type reads as the C++ type's default; numbers are
// accepted for every numeric type, nothing else is converted.
template <typename T, typename Enable = void> struct ZuvoFieldCodec {
    static T read(const QVariant& value) {
        if constexpr (std::is_same_v<T, QVariant>) {
            return value;
        } else if constexpr (std::is_base_of_v<ZuvoHash, T>) {
            const auto type = value.userType();
            if (type != QMetaType::QVariantHash && type != QMetaType::QVariantMap)
                return T();
            return T(zuvo_detail::toHash(value));
        } else if constexpr (zuvo_detail::IsZuvoList<T>::value) {
            T list;
            if (value.userType() != QMetaType::QVariantList && value.userType() != QMetaType::QStringList)
                return list;
            const QVariantList items = value.toList();
            list.reserve(items.size());
            for (const QVariant& item : items)
                list.append(ZuvoFieldCodec<typename T::value_type>::read(item));
            return list;
        } else if constexpr (std::is_same_v<T, bool>) {
            return value.userType() == QMetaType::Bool ? value.toBool() : false;
        } else if constexpr (std::is_same_v<T, QString>) {
            return value.userType() == QMetaType::QString ? value.toString() : QString();
        } else if constexpr (std::is_same_v<T, QStringList>) {
            const auto type = value.userType();
            return (type == QMetaType::QStringList || type == QMetaType::QVariantList) ? value.toStringList()
                                                                                       : QStringList();
        } else if constexpr (std::is_enum_v<T>) {
            return zuvo_detail::isNumeric(value) ? static_cast<T>(value.toInt()) : T();
        } else if constexpr (std::is_floating_point_v<T>) {
            return zuvo_detail::isNumeric(value) ? static_cast<T>(value.toDouble()) : T();
        } else if constexpr (std::is_integral_v<T>) {
            return zuvo_detail::isNumeric(value) ? static_cast<T>(value.toLongLong()) : T();
        } else {
            static_assert(sizeof(T) == 0, "no ZuvoFieldCodec for this field type");
        }
    }

    static QVariant write(const T& value) {
        if constexpr (std::is_same_v<T, QVariant>) {
            return value;
        } else if constexpr (std::is_base_of_v<ZuvoHash, T>) {
            return value.__variant();
        } else if constexpr (zuvo_detail::IsZuvoList<T>::value) {
            QVariantList items;
            items.reserve(value.size());
            for (const auto& item : value)
                items.append(ZuvoFieldCodec<typename T::value_type>::write(item));
            return items;
        } else if constexpr (std::is_enum_v<T>) {
            return QVariant(static_cast<int>(value));
        } else {
            return QVariant::fromValue(value);
        }
    }
};

#define ZUVO_FIELD_DECL(Type, name, Name)                                                                    \
    Type name() const {                                                                                      \
        return ZuvoFieldCodec<Type>::read(m_hash.value(Name()));                                             \
    }                                                                                                        \
    void set##Name(const Type& value) {                                                                      \
        m_hash.insert(Name(), ZuvoFieldCodec<Type>::write(value));                                           \
    }                                                                                                        \
    bool isSet##Name() const {                                                                               \
        return m_hash.contains(Name());                                                                      \
    }                                                                                                        \
    static QString Name() {                                                                                  \
        return QStringLiteral(#name);                                                                        \
    }

// Declares record class Record with the fields listed by FIELDS(F).
#define ZUVO_RECORD(Record, FIELDS)                                                                          \
    class Record : public ZuvoHash {                                                                         \
    public:                                                                                                  \
        Record() = default;                                                                                  \
        explicit Record(const QVariantHash& hash)                                                            \
            : ZuvoHash(hash) {}                                                                              \
        FIELDS(ZUVO_FIELD_DECL)                                                                              \
    };

// Records whose field types refer back to them (A holds B, B holds a list of
// A) cannot define their accessors inside the class, because a getter returns
// its field by value and so needs the field's type complete. For those:
//
//   ZUVO_RECORD_DECLARE(Record, FIELDS)   // the class, accessors declared only
//   ... the records its fields use ...
//   #define ZUVO_RECORD_SELF Record
//   ZUVO_RECORD_DEFINE(Record, FIELDS)    // inline accessor definitions
//   #undef ZUVO_RECORD_SELF
//
// The accessors behave exactly as those of ZUVO_RECORD. ZUVO_RECORD_SELF names
// the record for the out-of-line definitions (a field macro receives only the
// field); ZUVO_RECORD_DEFINE checks that it matches.
#define ZUVO_FIELD_PROTO(Type, name, Name)                                                                   \
    Type name() const;                                                                                       \
    void set##Name(const Type& value);                                                                       \
    bool isSet##Name() const {                                                                               \
        return m_hash.contains(Name());                                                                      \
    }                                                                                                        \
    static QString Name() {                                                                                  \
        return QStringLiteral(#name);                                                                        \
    }

#define ZUVO_FIELD_DEFINE(Type, name, Name)                                                                  \
    inline Type ZUVO_RECORD_SELF::name() const {                                                             \
        return ZuvoFieldCodec<Type>::read(m_hash.value(Name()));                                             \
    }                                                                                                        \
    inline void ZUVO_RECORD_SELF::set##Name(const Type& value) {                                             \
        m_hash.insert(Name(), ZuvoFieldCodec<Type>::write(value));                                           \
    }

#define ZUVO_RECORD_DECLARE(Record, FIELDS)                                                                  \
    class Record : public ZuvoHash {                                                                         \
    public:                                                                                                  \
        Record() = default;                                                                                  \
        explicit Record(const QVariantHash& hash)                                                            \
            : ZuvoHash(hash) {}                                                                              \
        FIELDS(ZUVO_FIELD_PROTO)                                                                             \
    };

#define ZUVO_RECORD_DEFINE(Record, FIELDS)                                                                   \
    static_assert(std::is_same_v<Record, ZUVO_RECORD_SELF>, "define ZUVO_RECORD_SELF as " #Record);          \
    FIELDS(ZUVO_FIELD_DEFINE)

#define ZUVO_ENUM_VALUE(name, value) name = value,
#define ZUVO_ENUM_CASE(name, value)                                                                          \
    case name:                                                                                               \
        return QStringLiteral(#name);

// Declares struct Type { enum Enum : int {...}; static QString toString(Enum); }
// from VALUES(V), a list of V(name, value). toString of a value outside the
// list gives an empty string. The underlying type is fixed to int so that any
// int read from untrusted input is a valid Enum value (an enumeration without
// a fixed type only holds the values of its enumerators' bit range).
#define ZUVO_ENUM(Type, VALUES)                                                                              \
    struct Type {                                                                                            \
        enum Enum : int { VALUES(ZUVO_ENUM_VALUE) };                                                         \
        static QString toString(Enum value) { return toString(static_cast<int>(value)); }                    \
        static QString toString(int value) {                                                                 \
            switch (value) { VALUES(ZUVO_ENUM_CASE) }                                                        \
            return QString();                                                                                \
        }                                                                                                    \
    };
