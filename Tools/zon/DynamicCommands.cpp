#include "Commands.h"

#include "CommandSupport.h"
#include "Files.h"

#include "genericObjects/DynamicPropertyTable.h"
#include "genericObjects/TXZonDynamicObject.h"
#include "platform/io/KeyedArchiver.h"
#include "platform/io/KeyedUnarchiver.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"
#include "platform/values/Set.h"
#include "platform/values/String.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <optional>

namespace zon::tool {

// The album a demo track is on: a second table-declared class, held by the track.
class TXZonDemoAlbum final : public TXZonDynamicObject {
    ZON_OBJECT(TXZonDemoAlbum, TXZonDynamicObject)
public:
    static Ref<TXZonDemoAlbum> album() { return create<TXZonDemoAlbum>(); }
    static void exportMethods(Class& cls) { registerInstanceFactory<TXZonDemoAlbum>(cls); }
    Ref<Dictionary> objcAttributes() const override
    {
        return DynamicPropertyTable()
            .property("name", String::staticClass())
            .property("year", Number::staticClass())
            .table();
    }

private:
    TXZonDemoAlbum() = default;
};
ZON_DEFINE_CLASS(TXZonDemoAlbum, "TXZonDemoAlbum")

// A track of the demo: a typed title with a default and hooks, a volume level with a default,
// a container of artist names with a hook after adding, and the album it is on. Its hooks print
// what they see.
class TXZonDemoTrack final : public TXZonDynamicObject {
    ZON_OBJECT(TXZonDemoTrack, TXZonDynamicObject)
public:
    static Ref<TXZonDemoTrack> track() { return create<TXZonDemoTrack>(); }
    static void exportMethods(Class& cls)
    {
        registerInstanceFactory<TXZonDemoTrack>(cls);
        cls.exportMethod("titleWillChange:", &TXZonDemoTrack::titleWillChange);
        cls.exportMethod("titleDidChange:", &TXZonDemoTrack::titleDidChange);
        cls.exportMethod("artistsAdded:", &TXZonDemoTrack::artistsAdded);
    }
    Ref<Dictionary> objcAttributes() const override
    {
        return DynamicPropertyTable()
            .property("title", String::staticClass()).defaultValue(ZSTR("Untitled"))
            .preSetter("titleWillChange:").postSetter("titleDidChange:")
            .property("volumeLevel", Number::staticClass()).defaultValue(Number::numberWithInt(50).get())
            .property("artists", Array::staticClass()).container(String::staticClass()).postAdd("artistsAdded:")
            .property("album", TXZonDemoAlbum::staticClass())
            .table();
    }

private:
    TXZonDemoTrack() = default;
    void titleWillChange(Object* title)
    {
        std::cout << "  pre-setter:  " << printableDescription(title) << " (title is still "
                  << printableDescription(valueForPropertyName(ZSTR("title")).get()) << ")\n";
    }
    void titleDidChange(Object* title) { std::cout << "  post-setter: " << printableDescription(title) << '\n'; }
    void artistsAdded(Object* artists)
    {
        std::cout << "  post-add:    " << static_cast<Array*>(artists)->count() << " artists added\n";
    }
};
ZON_DEFINE_CLASS(TXZonDemoTrack, "TXZonDemoTrack")

namespace {

Ref<Object> call(Object* object, const char* getter) { return object->performSelector(selector(getter)); }

void show(const char* label, Object* object, const char* getter)
{
    std::cout << label << getter << " = " << printableDescription(call(object, getter).get()) << '\n';
}

void showTrack(const char* label, Object* track)
{
    for (const char* getter : {"title", "volumeLevel", "artists"})
        show(label, track, getter);
    Ref<Object> album = call(track, "album");
    std::cout << label << "album = "
              << (album ? album->objectClass()->name() + " " + printableDescription(call(album.get(), "name").get())
                          + ", " + printableDescription(call(album.get(), "year").get())
                        : std::string("(nil)"))
              << '\n';
}

// Archives the track to path with the keyed archiver and reads it back. The unarchiver finds a
// class by its registered name, and a class registers when first used: naming the demo classes
// in the allow-list registers them before the archive is read.
void archiveAndReadBack(TXZonDemoTrack* track, const std::string& path)
{
    std::cout << "\narchive to " << path << " (the track, its album and its artists)\n";
    Ref<Error> error;
    Ref<Data> archive = KeyedArchiver::archivedDataWithRootObject(track, &error);
    if (!archive)
        fail("archiving failed: " + error->localizedDescription()->UTF8String());
    OutputFile out(path);
    out.write(*archive);
    out.commit();
    std::cout << "  " << archive->length() << " bytes written\n";

    Ref<Set> allowed = Set::setWithObjects({TXZonDemoTrack::staticClass(), TXZonDemoAlbum::staticClass()});
    Ref<Object> read =
        KeyedUnarchiver::unarchivedObjectOfClasses_fromData_error(allowed.get(), readWholeFile(path).get(), &error);
    if (!read)
        fail(path + ": " + (error ? error->localizedDescription()->UTF8String() : "the archive holds nil"));
    std::cout << "read back (hooks not run): a " << read->objectClass()->name() << '\n';
    showTrack("  read ", read.get());
}

void runDemo(const std::optional<std::string>& archivePath)
{
    Ref<TXZonDemoTrack> track = TXZonDemoTrack::track();
    std::cout << "properties: " << printableDescription(track->allProperties().get()) << '\n';
    std::cout << "accessors added to " << track->objectClass()->name() << ":";
    for (const char* name :
        {"title", "setTitle:", "volumeLevel", "setVolumeLevel:", "artists", "setArtists:", "album", "setAlbum:"})
        std::cout << ' ' << name << (track->respondsToSelector(selector(name)) ? "" : "(missing)");
    std::cout << '\n';

    std::cout << "\nsetTitle: \"Blue in Green\"\n";
    track->performSelector(selector("setTitle:"), ZSTR("Blue in Green"));
    show("", track.get(), "title");

    std::cout << "\nsetVolumeLevel: nil (the default comes in)\n";
    track->performSelector(selector("setVolumeLevel:"), nullptr);
    show("", track.get(), "volumeLevel");

    std::cout << "\nsetVolumeLevel: \"loud\"\n";
    try {
        track->performSelector(selector("setVolumeLevel:"), ZSTR("loud"));
    } catch (const Exception& exception) {
        std::cout << "  raised " << exception.name()->UTF8String() << ": " << exception.reason()->UTF8String() << '\n';
    }

    std::cout << "\nsetArtists: (Miles), then addObjects: (Bill, John)\n";
    track->performSelector(selector("setArtists:"), Array::arrayWithObjects({ZSTR("Miles")}).get());
    track->addObjects_toContainerWithPropertyName(Array::arrayWithObjects({ZSTR("Bill"), ZSTR("John")}).get(), ZSTR("artists"));
    show("", track.get(), "artists");

    std::cout << "\nsetAlbum: (Kind of Blue, 1959)\n";
    Ref<TXZonDemoAlbum> album = TXZonDemoAlbum::album();
    album->setValue_forPropertyName(ZSTR("Kind of Blue"), ZSTR("name"));
    album->setValue_forPropertyName(Number::numberWithInt(1959).get(), ZSTR("year"));
    track->performSelector(selector("setAlbum:"), album.get());

    if (archivePath)
        archiveAndReadBack(track.get(), *archivePath);

    std::cout << "\ncopy (values copied, hooks not run)\n";
    Ref<Object> copy = track->copy();
    showTrack("  copy ", copy.get());
    std::cout << "  copy's artists are " << (call(copy.get(), "artists") == call(track.get(), "artists") ? "" : "not ")
              << "the original's object\n";
}

} // namespace

void addDynamicCommands(CLI::App& app)
{
    auto* group = app.add_subcommand("dynamic", "Model objects whose properties a table declares");
    group->require_subcommand(1);

    auto archivePath = std::make_shared<std::optional<std::string>>();
    auto* demo = group->add_subcommand("demo", "Set, read, archive and copy a sample table-declared track");
    demo->add_option("--archive", *archivePath, "archive the track to FILE and read it back");
    demo->callback([archivePath] { runDemo(*archivePath); });
}

} // namespace zon::tool
