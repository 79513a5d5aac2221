// Keyed archives against plain property lists: 10,000 objects of 8 properties archived and
// unarchived, against writing and reading the same values as an XML property list (an array of
// 10,000 dictionaries of 8 keys). Prints how many times as long the archive takes.

#include "RatioReporter.h"

#include "platform/io/KeyedArchiver.h"
#include "platform/io/KeyedUnarchiver.h"
#include "platform/io/PropertyListSerialization.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Number.h"
#include "platform/values/Set.h"
#include "platform/values/String.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

using namespace zon;

namespace {

constexpr int kObjects = 10000;
constexpr int kRepetitions = 5;

// A model object of 8 properties, archived under their names.
class Record final : public Object {
    ZON_OBJECT(Record, Object)
public:
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("encodeWithCoder:", &Record::encodeWithCoder);
        cls.exportMethod("initWithCoder:", &Record::initWithCoder);
        cls.setInstanceFactory([] { return makeObject<Record>(); });
    }
    static Ref<Record> record(int i)
    {
        Ref<Record> record = makeObject<Record>();
        record->name = String::stringWithUTF8String("record " + std::to_string(i));
        record->title = String::stringWithUTF8String("Title & <" + std::to_string(i % 97) + ">");
        record->tag = String::stringWithUTF8String("tag-" + std::to_string(i % 13));
        record->created = Date::dateWithTimeIntervalSinceReferenceDate(700000000.0 + i);
        record->payload = Data::dataWithBytes(record->name->UTF8String().data(), 12);
        record->age = i % 90;
        record->score = i * 0.25;
        record->active = i % 2 == 0;
        return record;
    }
    // The same values as a dictionary.
    Ref<Dictionary> dictionary() const
    {
        return Dictionary::dictionaryWithObjectsAndKeys({{ZSTR("name"), name.get()}, {ZSTR("title"), title.get()},
            {ZSTR("tag"), tag.get()}, {ZSTR("created"), created.get()}, {ZSTR("payload"), payload.get()},
            {ZSTR("age"), Number::numberWithLong(age).get()}, {ZSTR("score"), Number::numberWithDouble(score).get()},
            {ZSTR("active"), Number::numberWithBool(active).get()}});
    }

private:
    Record() = default;
    void encodeWithCoder(Coder* coder)
    {
        coder->encodeObject_forKey(name.get(), ZSTR("name"));
        coder->encodeObject_forKey(title.get(), ZSTR("title"));
        coder->encodeObject_forKey(tag.get(), ZSTR("tag"));
        coder->encodeObject_forKey(created.get(), ZSTR("created"));
        coder->encodeObject_forKey(payload.get(), ZSTR("payload"));
        coder->encodeInteger_forKey(age, ZSTR("age"));
        coder->encodeDouble_forKey(score, ZSTR("score"));
        coder->encodeBool_forKey(active, ZSTR("active"));
    }
    Ref<Object> initWithCoder(Coder* coder)
    {
        name = dynamicCast<String>(coder->decodeObjectForKey(ZSTR("name")));
        title = dynamicCast<String>(coder->decodeObjectForKey(ZSTR("title")));
        tag = dynamicCast<String>(coder->decodeObjectForKey(ZSTR("tag")));
        created = dynamicCast<Date>(coder->decodeObjectForKey(ZSTR("created")));
        payload = dynamicCast<Data>(coder->decodeObjectForKey(ZSTR("payload")));
        age = coder->decodeIntegerForKey(ZSTR("age"));
        score = coder->decodeDoubleForKey(ZSTR("score"));
        active = coder->decodeBoolForKey(ZSTR("active"));
        return Ref<Object>(this);
    }

    Ref<String> name, title, tag;
    Ref<Date> created;
    Ref<Data> payload;
    long age = 0;
    double score = 0;
    bool active = false;
};

ZON_DEFINE_CLASS(Record, "BenchmarkRecord")

struct Corpus {
    Ref<Array> records;
    Ref<Array> dictionaries;
    Ref<Data> archive;
    Ref<Data> plist;
    Ref<Set> allowed = Set::setWithObject(Record::staticClass());

    Corpus()
    {
        Ref<MutableArray> objects = MutableArray::array(), plain = MutableArray::array();
        for (int i = 0; i < kObjects; ++i) {
            Ref<Record> record = Record::record(i);
            plain->addObject(record->dictionary().get());
            objects->addObject(record.get());
        }
        records = objects;
        dictionaries = plain;
        archive = KeyedArchiver::archivedDataWithRootObject(records.get(), nullptr);
        plist = PropertyListSerialization::dataWithPropertyList(dictionaries.get(), NSPropertyListXMLFormat_v1_0, nullptr);
        if (!archive || !plist)
            std::abort();
    }
};

const Corpus& corpus()
{
    static const Corpus instance;
    return instance;
}

void BM_KeyedArchiveWrite(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(KeyedArchiver::archivedDataWithRootObject(corpus().records.get(), nullptr));
}
BENCHMARK(BM_KeyedArchiveWrite)->Unit(benchmark::kMillisecond)->Repetitions(kRepetitions);

void BM_KeyedArchivePlainWrite(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(PropertyListSerialization::dataWithPropertyList(
            corpus().dictionaries.get(), NSPropertyListXMLFormat_v1_0, nullptr));
}
BENCHMARK(BM_KeyedArchivePlainWrite)->Unit(benchmark::kMillisecond)->Repetitions(kRepetitions);

void BM_KeyedArchiveRead(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(KeyedUnarchiver::unarchivedObjectOfClasses_fromData_error(
            corpus().allowed.get(), corpus().archive.get(), nullptr));
}
BENCHMARK(BM_KeyedArchiveRead)->Unit(benchmark::kMillisecond)->Repetitions(kRepetitions);

void BM_KeyedArchivePlainRead(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(PropertyListSerialization::propertyListWithData(corpus().plist.get(), nullptr));
}
BENCHMARK(BM_KeyedArchivePlainRead)->Unit(benchmark::kMillisecond)->Repetitions(kRepetitions);

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    corpus(); // built outside the timed runs
    bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("archive %zu bytes, plain property list %zu bytes\n", corpus().archive->length(), corpus().plist->length());
    reporter.printRatio("BM_KeyedArchiveWrite", "BM_KeyedArchivePlainWrite");
    reporter.printRatio("BM_KeyedArchiveRead", "BM_KeyedArchivePlainRead");
    benchmark::Shutdown();
    return 0;
}
