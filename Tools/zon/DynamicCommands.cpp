#include "Commands.h"

#include "CommandSupport.h"

#include "genericObjects/DynamicPropertyTable.h"
#include "genericObjects/TXZonDynamicObject.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <optional>

namespace zon::tool {

// A track of the demo: a typed title with a default and hooks, a volume level with a default,
// and a container of artist names with a hook after adding. Its hooks print what they see.
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

void runDemo(const std::optional<std::string>& archivePath)
{
    // Written by the keyed archiver once it is part of the library: archive the track to the
    // file, read it back through the archiver's reader, and show what came back.
    if (archivePath)
        fail("archiving not available");

    Ref<TXZonDemoTrack> track = TXZonDemoTrack::track();
    std::cout << "properties: " << printableDescription(track->allProperties().get()) << '\n';
    std::cout << "accessors added to " << track->objectClass()->name() << ":";
    for (const char* name : {"title", "setTitle:", "volumeLevel", "setVolumeLevel:", "artists", "setArtists:"})
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

    std::cout << "\ncopy (values copied, hooks not run)\n";
    Ref<Object> copy = track->copy();
    for (const char* getter : {"title", "volumeLevel", "artists"})
        show("  copy ", copy.get(), getter);
    std::cout << "  copy's artists are " << (call(copy.get(), "artists") == call(track.get(), "artists") ? "" : "not ")
              << "the original's object\n";
}

} // namespace

void addDynamicCommands(CLI::App& app)
{
    auto* group = app.add_subcommand("dynamic", "Model objects whose properties a table declares");
    group->require_subcommand(1);

    auto archivePath = std::make_shared<std::optional<std::string>>();
    auto* demo = group->add_subcommand("demo", "Set, read and copy a sample table-declared track");
    demo->add_option("--archive", *archivePath, "archive the track to FILE and read it back");
    demo->callback([archivePath] { runDemo(*archivePath); });
}

} // namespace zon::tool
