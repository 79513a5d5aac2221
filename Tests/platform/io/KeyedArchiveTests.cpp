// The keyed archiver and unarchiver: round trips of every property-list value and of nested
// objects that archive themselves, the archive's layout, and the unarchiver's refusals of
// outside bytes (classes outside the allow-list, bad references, cycles, exceptions raised while
// decoding), each a nil result with an error and nothing left alive.

#include "platform/io/KeyedArchiver.h"
#include "platform/io/KeyedUnarchiver.h"
#include "platform/io/PropertyListSerialization.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/KeyedArchiverUID.h"
#include "platform/values/MutableString.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/Set.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <unistd.h>

using namespace zon;
using namespace zon::test;
using testing::HasSubstr;

namespace {

// A model object that archives its fields; its name goes through an exported setter whose
// parameter type is checked, so a name of another class raises while decoding.
class Person : public Object {
    ZON_OBJECT(Person, Object)
public:
    static inline int alive = 0;

    static Ref<Person> person(std::string_view name, long age) { return makeObject<Person>(str(name), age); }
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("encodeWithCoder:", &Person::encodeWithCoder);
        cls.exportMethod("initWithCoder:", &Person::initWithCoder);
        cls.exportMethod("setName:", &Person::setName);
        cls.setInstanceFactory([] { return makeObject<Person>(nullptr, 0); });
    }

    Ref<String> name;
    long age = 0;
    bool active = false;
    double score = 0;
    Ref<Person> friendOf;
    Ref<Object> belongings;

    bool isEqual(const Object* other) const override
    {
        const auto* person = dynamicCast<Person>(other);
        return person && objectsEqual(name.get(), person->name.get()) && age == person->age
            && active == person->active && score == person->score
            && objectsEqual(friendOf.get(), person->friendOf.get())
            && objectsEqual(belongings.get(), person->belongings.get());
    }
    size_t hash() const override { return name ? name->hash() : 0; }
    Ref<String> description() const override
    {
        return str(utf8(name) + " " + std::to_string(age) + " " + std::to_string(active) + " " + std::to_string(score)
            + " friend " + (friendOf ? utf8(friendOf->description().get()) : "nil") + " belongings "
            + (belongings ? utf8(belongings->description().get()) : "nil"));
    }
    ~Person() override { --alive; }

protected:
    Person(Ref<String> name, long age) : name(std::move(name)), age(age) { ++alive; }

private:
    void setName(String* text) { name = text; }
    void encodeWithCoder(Coder* coder)
    {
        coder->encodeObject_forKey(name.get(), ZSTR("name"));
        coder->encodeInteger_forKey(age, ZSTR("age"));
        coder->encodeBool_forKey(active, ZSTR("active"));
        coder->encodeDouble_forKey(score, ZSTR("score"));
        coder->encodeObject_forKey(friendOf.get(), ZSTR("friend"));
        if (belongings)
            coder->encodeObject_forKey(belongings.get(), ZSTR("belongings"));
    }
    Ref<Object> initWithCoder(Coder* coder)
    {
        performSelector(selector("setName:"), coder->decodeObjectForKey(ZSTR("name")).get());
        age = coder->decodeIntegerForKey(ZSTR("age"));
        active = coder->decodeBoolForKey(ZSTR("active"));
        score = coder->decodeDoubleForKey(ZSTR("score"));
        friendOf = dynamicCast<Person>(coder->decodeObjectForKey(ZSTR("friend")));
        belongings = coder->decodeObjectForKey(ZSTR("belongings"));
        return Ref<Object>(this);
    }
};

class Employee final : public Person {
    ZON_OBJECT(Employee, Person)
public:
    static void exportMethods(Class& cls)
    {
        cls.setInstanceFactory([] { return makeObject<Employee>(); });
    }

private:
    Employee() : Person(nullptr, 0) {}
};

// An object with no encodeWithCoder:.
class Opaque final : public Object {
    ZON_OBJECT(Opaque, Object)
public:
    static Ref<Opaque> opaque() { return makeObject<Opaque>(); }

private:
    Opaque() = default;
};

ZON_DEFINE_CLASS(Person, "TestPerson")
ZON_DEFINE_CLASS(Employee, "TestEmployee")
ZON_DEFINE_CLASS(Opaque, "TestOpaque")

Ref<Data> archive(Object* root)
{
    Ref<Error> error;
    Ref<Data> data = KeyedArchiver::archivedDataWithRootObject(root, &error);
    EXPECT_TRUE(data) << (error ? utf8(error->localizedDescription()) : "");
    return data;
}

struct Decoded {
    Ref<Object> object;
    Ref<Error> error;
    std::string message() const { return error ? utf8(error->localizedDescription()) : "(no error)"; }
};

Decoded unarchive(Data* data, Set* classes = nullptr)
{
    Person::staticClass();
    Employee::staticClass();
    Decoded result;
    result.object = KeyedUnarchiver::unarchivedObjectOfClasses_fromData_error(classes, data, &result.error);
    return result;
}

// A refused archive: nil, an error of the unarchiver's code, and no object left alive.
void expectRefused(const Decoded& decoded, std::string_view messagePart)
{
    EXPECT_FALSE(decoded.object);
    ASSERT_TRUE(decoded.error);
    EXPECT_TRUE(decoded.error->domain()->isEqualToString(NSCocoaErrorDomain));
    EXPECT_EQ(decoded.error->code(), NSCoderReadCorruptError);
    EXPECT_THAT(decoded.message(), HasSubstr(std::string(messagePart)));
    EXPECT_EQ(Person::alive, 0);
}

Ref<KeyedArchiverUID> uid(uint64_t value) { return KeyedArchiverUID::uidWithValue(value); }

Ref<Dictionary> classRecord(std::string_view name, std::initializer_list<std::string_view> chain)
{
    Ref<MutableArray> classes = MutableArray::array();
    for (std::string_view link : chain)
        classes->addObject(str(link).get());
    return Dictionary::dictionaryWithObjectsAndKeys({{ZSTR("$classname"), str(name).get()}, {ZSTR("$classes"), classes.get()}});
}

// An archive assembled by hand, for layouts the archiver never writes.
Ref<Data> handMadeArchive(std::initializer_list<Object*> objects, Object* root)
{
    Ref<MutableArray> entries = MutableArray::arrayWithObject(ZSTR("$null"));
    for (Object* object : objects)
        entries->addObject(object);
    Ref<Dictionary> plist = Dictionary::dictionaryWithObjectsAndKeys({
        {ZSTR("$archiver"), ZSTR("NSKeyedArchiver")},
        {ZSTR("$objects"), entries.get()},
        {ZSTR("$top"), Dictionary::dictionaryWithObject_forKey(root, ZSTR("root")).get()},
        {ZSTR("$version"), Number::numberWithInt(100000).get()},
    });
    return PropertyListSerialization::dataWithPropertyList(plist.get(), NSPropertyListXMLFormat_v1_0, nullptr);
}

// A record whose class record is the first entry after "$null", with the fields the test gives.
Ref<Dictionary> recordOfFirstClass(std::initializer_list<Dictionary::KeyValue> fields)
{
    Ref<MutableDictionary> record = MutableDictionary::dictionaryWithObjectsAndKeys(fields);
    record->setObject_forKey(uid(1).get(), ZSTR("$class"));
    return record;
}

Ref<Object> everyValueType()
{
    Ref<MutableDictionary> values = MutableDictionary::dictionary();
    values->setObject_forKey(str("plain & <text>"), ZSTR("string"));
    values->setObject_forKey(str(u"\u00e9t\u00e9 \U0001F600"), ZSTR("unicode"));
    values->setObject_forKey(MutableString::stringWithUTF8String("mutable"), ZSTR("mutableString"));
    values->setObject_forKey(Number::numberWithLongLong(INT64_MIN), ZSTR("min"));
    values->setObject_forKey(Number::numberWithUnsignedLongLong(UINT64_MAX), ZSTR("max"));
    values->setObject_forKey(Number::numberWithDouble(-0.125), ZSTR("real"));
    values->setObject_forKey(Number::yes(), ZSTR("yes"));
    values->setObject_forKey(dataOf({0, 1, 2, 0xFF}), ZSTR("data"));
    values->setObject_forKey(MutableData::dataWithBytes("abc", 3), ZSTR("mutableData"));
    values->setObject_forKey(Date::dateWithTimeIntervalSinceReferenceDate(123456.5), ZSTR("date"));
    values->setObject_forKey(Array::arrayWithObjects({ZSTR("a"), Number::numberWithInt(1).get()}), ZSTR("array"));
    values->setObject_forKey(MutableArray::array(), ZSTR("emptyMutableArray"));
    values->setObject_forKey(Set::setWithObjects({ZSTR("y"), ZSTR("x")}), ZSTR("set"));
    values->setObject_forKey(MutableSet::set(), ZSTR("mutableSet"));
    values->setObject_forKey(Dictionary::dictionaryWithObject_forKey(Null::null(), ZSTR("null")), ZSTR("dictionary"));
    return values;
}

} // namespace

TEST(KeyedArchive, EveryPropertyListValueRoundTripsWithItsClass)
{
    Ref<Object> values = everyValueType();
    Decoded decoded = unarchive(archive(values.get()).get());
    ASSERT_TRUE(decoded.object) << decoded.message();
    EXPECT_TRUE(objectsEqual(decoded.object.get(), values.get()));
    auto* dictionary = dynamicCast<Dictionary>(decoded.object.get());
    ASSERT_TRUE(dictionary);
    for (const auto [key, value] : *static_cast<Dictionary*>(values.get()))
        EXPECT_EQ(dictionary->objectForKey(key)->objectClass(), value->objectClass()) << utf8(static_cast<String*>(key));
}

TEST(KeyedArchive, LayoutHasTheArchiverRecordsAndOneEntryPerSharedObject)
{
    Ref<String> shared = str("shared");
    Ref<MutableArray> root = MutableArray::arrayWithObjects({shared.get(), shared.get(), Null::null()});
    Ref<Data> data = archive(root.get());
    Ref<Dictionary> plist = dynamicCast<Dictionary>(PropertyListSerialization::propertyListWithData(data.get(), nullptr));
    ASSERT_TRUE(plist);
    EXPECT_EQ(utf8(dynamicCast<String>(plist->objectForKey(ZSTR("$archiver")))), "NSKeyedArchiver");
    EXPECT_EQ(dynamicCast<Number>(plist->objectForKey(ZSTR("$version")))->longValue(), 100000);
    auto* objects = dynamicCast<Array>(plist->objectForKey(ZSTR("$objects")));
    ASSERT_TRUE(objects);
    EXPECT_EQ(utf8(dynamicCast<String>(objects->objectAtIndex(0))), "$null");
    // $null, the array, its class record, "shared" once, the null marker and its class record.
    EXPECT_EQ(objects->count(), 6u);
    EXPECT_TRUE(objects->containsObject(classRecord("NSMutableArray", {"NSMutableArray", "NSArray", "NSObject"}).get()));
    EXPECT_THAT(textOf(data.get()), HasSubstr("<key>CF$UID</key>"));

    Decoded decoded = unarchive(data.get());
    auto* array = dynamicCast<Array>(decoded.object.get());
    ASSERT_TRUE(array);
    EXPECT_EQ(array->objectAtIndex(0), array->objectAtIndex(1));
}

TEST(KeyedArchive, NestedObjectsRoundTripAndShareWhatTheyShare)
{
    Ref<Person> friendly = Person::person("Ada", 36);
    {
        Ref<Person> root = Person::person("Bob", 41);
        root->active = true;
        root->score = 2.5;
        root->friendOf = friendly;
        root->belongings = Array::arrayWithObjects({friendly.get(), everyValueType().get()});
        Decoded decoded = unarchive(archive(root.get()).get());
        auto* person = dynamicCast<Person>(decoded.object.get());
        ASSERT_TRUE(person) << decoded.message();
        EXPECT_TRUE(person->isEqual(root.get()));
        EXPECT_EQ(static_cast<Array*>(person->belongings.get())->objectAtIndex(0), person->friendOf.get());
        EXPECT_FALSE(person->friendOf->friendOf); // nil encodes as "$null" and decodes as nil
    }
    friendly = nullptr;
    EXPECT_EQ(Person::alive, 0);
}

TEST(KeyedArchive, ArchivingFailsForWhatCannotBeReadBack)
{
    Ref<MutableArray> cycle = MutableArray::array();
    cycle->addObject(cycle.get());
    Ref<Array> deep = Array::array();
    for (int i = 0; i < 300; ++i)
        deep = Array::arrayWithObject(deep.get());
    const std::pair<Ref<Object>, std::string> cases[] = {
        {nullptr, "root object of an archive cannot be nil"},
        {Array::arrayWithObject(Opaque::opaque().get()), "class 'TestOpaque' cannot be archived"},
        {cycle, "cycle"},
        {deep, "nested more than 256 deep"},
    };
    for (const auto& [root, message] : cases) {
        Ref<Error> error;
        EXPECT_FALSE(KeyedArchiver::archivedDataWithRootObject(root.get(), &error));
        ASSERT_TRUE(error) << message;
        EXPECT_EQ(error->code(), NSCoderInvalidValueError);
        EXPECT_THAT(utf8(error->localizedDescription()), HasSubstr(message));
    }
    cycle->removeAllObjects();
}

TEST(KeyedArchive, AllowListAdmitsListedClassesTheirSubclassesAndValuesOnly)
{
    Ref<Person> root = Person::person("Eve", 30);
    root->friendOf = staticRefCast<Person>(Employee::staticClass()->createInstance());
    Ref<Data> data = archive(root.get());
    Ref<Set> people = Set::setWithObject(Person::staticClass());
    Ref<Set> unrelated = Set::setWithObject(Opaque::staticClass());

    EXPECT_TRUE(unarchive(data.get(), people.get()).object);
    EXPECT_TRUE(unarchive(data.get()).object);
    root = nullptr;
    expectRefused(unarchive(data.get(), unrelated.get()), "'TestPerson' is not among the classes allowed");
    Ref<Set> none = Set::set();
    EXPECT_TRUE(unarchive(archive(everyValueType().get()).get(), none.get()).object);
}

TEST(KeyedArchive, MalformedArchivesAreRefused)
{
    Ref<Dictionary> personClass = classRecord("TestPerson", {"TestPerson", "NSObject"});
    const std::pair<Ref<Data>, std::string> cases[] = {
        {dataOf("not a property list"), "not a property list"},
        {PropertyListSerialization::dataWithPropertyList(Array::array().get(), NSPropertyListXMLFormat_v1_0, nullptr),
            "not a keyed archive"},
        {handMadeArchive({ZSTR("x")}, uid(7)), "Object reference 7 (root) is outside"},
        {handMadeArchive({ZSTR("x")}, ZSTR("x")), "root is not an object reference"},
        {handMadeArchive({personClass.get(), recordOfFirstClass({{ZSTR("name"), uid(9).get()}}).get()}, uid(2)),
            "Object reference 9 (key 'name') is outside"},
        {handMadeArchive({Array::array().get()}, uid(1)), "Object 1 is neither a value nor a record"},
        {handMadeArchive({personClass.get()}, uid(1)), "A record has no \"$class\""},
        {handMadeArchive({Dictionary::dictionaryWithObject_forKey(uid(2).get(), ZSTR("$class")).get(), ZSTR("x")}, uid(1)),
            "Object 2 is not a class record"},
        {handMadeArchive({classRecord("NoSuchClass", {}).get(), recordOfFirstClass({}).get()}, uid(2)),
            "no class has that name"},
        {handMadeArchive({classRecord("TestOpaque", {}).get(), recordOfFirstClass({}).get()}, uid(2)),
            "class 'TestOpaque': the class has no initWithCoder:"},
        {handMadeArchive({classRecord("NSArray", {}).get(), recordOfFirstClass({{ZSTR("NS.objects"), Array::arrayWithObject(uid(0).get()).get()}}).get()}, uid(2)),
            "reference to \"$null\""},
        {handMadeArchive({classRecord("NSDictionary", {}).get(), recordOfFirstClass({{ZSTR("NS.keys"), Array::array().get()}, {ZSTR("NS.objects"), Array::arrayWithObject(uid(3).get()).get()}}).get(), ZSTR("v")}, uid(2)),
            "has 0 keys but 1 objects"},
    };
    Opaque::staticClass();
    for (const auto& [data, message] : cases)
        expectRefused(unarchive(data.get()), message);
}

TEST(KeyedArchive, CyclesFailCleanlyAndLeakNothing)
{
    Ref<Dictionary> personClass = classRecord("TestPerson", {"TestPerson", "NSObject"});
    // A person who is their own friend, and two people who are each other's.
    expectRefused(unarchive(handMadeArchive({personClass.get(), recordOfFirstClass({{ZSTR("friend"), uid(2).get()}}).get()}, uid(2)).get()),
        "Object 2 refers back to itself");
    expectRefused(unarchive(handMadeArchive({personClass.get(), recordOfFirstClass({{ZSTR("friend"), uid(3).get()}}).get(),
                                                 recordOfFirstClass({{ZSTR("friend"), uid(2).get()}}).get()},
                                    uid(2)).get()),
        "(a cycle)");
    // An array that holds itself.
    expectRefused(unarchive(handMadeArchive({classRecord("NSArray", {}).get(),
                                                 recordOfFirstClass({{ZSTR("NS.objects"), Array::arrayWithObject(uid(2).get()).get()}}).get()},
                                    uid(2)).get()),
        "(a cycle)");
}

TEST(KeyedArchive, ExceptionInsideInitWithCoderBecomesNilAndAnError)
{
    Ref<Dictionary> personClass = classRecord("TestPerson", {"TestPerson", "NSObject"});
    // The name is a number: the setter's type check raises, after the friend was decoded.
    Ref<Data> data = handMadeArchive({personClass.get(), Number::numberWithInt(5).get(),
                                         recordOfFirstClass({{ZSTR("friend"), uid(4).get()}, {ZSTR("name"), uid(2).get()}}).get(),
                                         recordOfFirstClass({}).get()},
        uid(3));
    expectRefused(unarchive(data.get()), "Exception while decoding the archive: NSInvalidArgumentException");
}

TEST(KeyedArchive, NestingBeyondTheLimitIsRefused)
{
    Ref<MutableArray> entries = MutableArray::array();
    entries->addObject(classRecord("NSArray", {}).get());
    for (uint64_t i = 0; i < 300; ++i) {
        Ref<Array> elements = i + 1 < 300 ? Array::arrayWithObject(uid(i + 3).get()) : Array::array();
        entries->addObject(recordOfFirstClass({{ZSTR("NS.objects"), elements.get()}}).get());
    }
    Ref<MutableArray> objects = MutableArray::arrayWithObject(ZSTR("$null"));
    objects->addObjectsFromArray(entries.get());
    Ref<Dictionary> plist = Dictionary::dictionaryWithObjectsAndKeys({
        {ZSTR("$archiver"), ZSTR("NSKeyedArchiver")},
        {ZSTR("$objects"), objects.get()},
        {ZSTR("$top"), Dictionary::dictionaryWithObject_forKey(uid(2).get(), ZSTR("root")).get()},
    });
    expectRefused(unarchive(PropertyListSerialization::dataWithPropertyList(plist.get(), NSPropertyListXMLFormat_v1_0, nullptr).get()),
        "nested more than 256 deep");
}

TEST(KeyedArchive, XMLWriterWritesAUIDAsItsOneEntryDictionary)
{
    Ref<Data> xml = PropertyListSerialization::dataWithPropertyList(Array::arrayWithObject(uid(42).get()).get(),
        NSPropertyListXMLFormat_v1_0, nullptr);
    EXPECT_THAT(textOf(xml.get()), HasSubstr("<array>\n\t<dict>\n\t\t<key>CF$UID</key>\n\t\t<integer>42</integer>\n\t</dict>\n</array>\n"));
}

TEST(KeyedArchive, BinaryReaderReadsUIDsOfOneToSixteenBytes)
{
    // bplist00, one UID object at offset 8, the offset table, the trailer.
    auto document = [](Bytes uidBytes) {
        Bytes bytes = {'b', 'p', 'l', 'i', 's', 't', '0', '0'};
        bytes.insert(bytes.end(), uidBytes.begin(), uidBytes.end());
        const auto table = static_cast<uint8_t>(bytes.size());
        bytes.push_back(8);
        Bytes trailer(32, 0);
        trailer[6] = 1;
        trailer[7] = 1;
        trailer[15] = 1;
        trailer[31] = table;
        bytes.insert(bytes.end(), trailer.begin(), trailer.end());
        return dataOf(bytes);
    };
    auto read = [](Data* data) {
        return dynamicCast<KeyedArchiverUID>(PropertyListSerialization::propertyListWithData(data, nullptr));
    };
    EXPECT_EQ(read(document({0x80, 0x07}).get())->value(), 7u);
    EXPECT_EQ(read(document({0x81, 0x01, 0x02}).get())->value(), 0x102u);
    Bytes sixteen = {0x8F};
    sixteen.resize(17, 0);
    sixteen[16] = 9;
    EXPECT_EQ(read(document(sixteen).get())->value(), 9u);
    sixteen[1] = 1; // past 64 bits
    EXPECT_FALSE(read(document(sixteen).get()));
    EXPECT_FALSE(read(document({0x83, 0x00}).get())); // truncated
}

TEST(KeyedArchive, PlistlibChecksOurLayoutAndWritesBinaryArchivesWeRead)
{
    if (std::system("python3 -c 'import plistlib' >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "python3 with plistlib is not available";
    namespace fs = std::filesystem;
    const fs::path directory = fs::temp_directory_path() / ("zon-keyed-archive-" + std::to_string(::getpid()));
    fs::create_directories(directory);

    Ref<Person> person = Person::person("Bob", 41);
    person->friendOf = Person::person("Ada", 36);
    person->belongings = Set::setWithObjects({ZSTR("pen"), person->friendOf.get()});
    Ref<Object> roots[] = {everyValueType(), person, Array::arrayWithObjects({person.get(), person->friendOf.get()}),
        MutableString::stringWithUTF8String("alone"), Number::numberWithInt(7)};
    for (size_t i = 0; i < std::size(roots); ++i) {
        Ref<Data> data = archive(roots[i].get());
        std::ofstream(directory / (std::to_string(i) + ".ours.xml"), std::ios::binary)
            .write(static_cast<const char*>(data->bytes()), static_cast<std::streamsize>(data->length()));
    }
    const std::string command = "python3 " ZON_KEYED_ARCHIVE_PEER " " + directory.string();
    ASSERT_EQ(std::system(command.c_str()), 0) << "plistlib found our archives malformed";

    auto readBack = [&](const std::string& name) {
        std::ifstream in(directory / name, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), {});
        EXPECT_EQ(bytes.rfind("bplist00", 0), 0u) << name;
        return unarchive(dataOf(bytes).get(), Set::setWithObject(Person::staticClass()).get());
    };
    for (size_t i = 0; i < std::size(roots); ++i) {
        Decoded decoded = readBack(std::to_string(i) + ".py.bin");
        EXPECT_TRUE(objectsEqual(decoded.object.get(), roots[i].get())) << i << ": " << decoded.message();
    }

    Ref<Person> grace = Person::person("Grace", 85);
    grace->active = true;
    grace->score = 0.5;
    grace->belongings = MutableArray::arrayWithObjects({Number::numberWithDouble(1.5).get(),
        Date::dateWithTimeIntervalSinceReferenceDate(0).get(),
        Dictionary::dictionaryWithObject_forKey(dataOf({0x00, 0xFF}).get(), ZSTR("Grace")).get(), ZSTR("Grace")});
    Decoded decoded = readBack("python_made.py.bin");
    EXPECT_TRUE(objectsEqual(decoded.object.get(), grace.get()))
        << decoded.message() << "\n" << utf8(decoded.object ? decoded.object->description().get() : nullptr) << "\n"
        << utf8(grace->description().get());
    auto* decodedPerson = dynamicCast<Person>(decoded.object.get());
    ASSERT_TRUE(decodedPerson);
    EXPECT_TRUE(decodedPerson->belongings->isKindOfClass(MutableArray::staticClass()));
    EXPECT_EQ(static_cast<Array*>(decodedPerson->belongings.get())->objectAtIndex(3), decodedPerson->name.get());
    fs::remove_all(directory);
}
