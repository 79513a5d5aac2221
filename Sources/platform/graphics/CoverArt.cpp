#include "platform/graphics/CoverArtInternal.h"

#include "platform/io/TypeIdentifiers.h"
#include "platform/system/FileCallsInternal.h"

#include <taglib/asffile.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/flacfile.h>
#include <taglib/id3v2tag.h>
#include <taglib/mp4file.h>
#include <taglib/mpegfile.h>
#include <taglib/opusfile.h>
#include <taglib/tbytevectorstream.h>
#include <taglib/vorbisfile.h>
#include <taglib/xiphcomment.h>

#include <limits>

namespace zon {

namespace {

using Picture = std::optional<std::vector<uint8_t>>;

Picture bytesOf(const TagLib::ByteVector& data)
{
    if (data.isEmpty())
        return std::nullopt;
    return std::vector<uint8_t>(data.begin(), data.end());
}

// A read-only TagLib stream over an open descriptor, through the system-call layer.
class DescriptorStream final : public TagLib::IOStream {
public:
    DescriptorStream(FileDescriptor file, long length) : file_(std::move(file)), length_(length) {}

    TagLib::FileName name() const override { return ""; }
    TagLib::ByteVector readBlock(unsigned long length) override
    {
        TagLib::ByteVector block(static_cast<unsigned int>(std::min<unsigned long>(length, std::max(0L, length_ - position_))), 0);
        size_t filled = 0;
        while (filled < block.size()) {
            auto n = readSome(file_.get(), {reinterpret_cast<uint8_t*>(block.data()) + filled, block.size() - filled});
            if (!n || n.value() == 0)
                break;
            filled += n.value();
        }
        block.resize(static_cast<unsigned int>(filled));
        position_ += long(filled);
        return block;
    }
    void writeBlock(const TagLib::ByteVector&) override {}
    void insert(const TagLib::ByteVector&, unsigned long, unsigned long) override {}
    void removeBlock(unsigned long, unsigned long) override {}
    bool readOnly() const override { return true; }
    bool isOpen() const override { return file_.isValid(); }
    void seek(long offset, Position from) override
    {
        const long base = from == Beginning ? 0 : from == Current ? position_ : length_;
        auto moved = seekFile(file_.get(), base + offset, SEEK_SET);
        if (moved)
            position_ = long(moved.value());
    }
    long tell() const override { return position_; }
    long length() override { return length_; }
    void truncate(long) override {}

private:
    FileDescriptor file_;
    long length_;
    long position_ = 0;
};

// The front cover of a list whose entries say their picture type, else the first one.
template <class List, class IsFront, class BytesOf>
Picture frontOrFirst(const List& pictures, IsFront isFront, BytesOf pictureBytes)
{
    for (const auto& picture : pictures)
        if (isFront(picture))
            return bytesOf(pictureBytes(picture));
    if (pictures.isEmpty())
        return std::nullopt;
    return bytesOf(pictureBytes(pictures.front()));
}

Picture fromFLACPictures(const TagLib::List<TagLib::FLAC::Picture*>& pictures)
{
    return frontOrFirst(
        pictures, [](const TagLib::FLAC::Picture* p) { return p->type() == TagLib::FLAC::Picture::FrontCover; },
        [](const TagLib::FLAC::Picture* p) { return p->data(); });
}

Picture fromID3v2(TagLib::ID3v2::Tag* tag)
{
    if (!tag)
        return std::nullopt;
    using Frame = TagLib::ID3v2::AttachedPictureFrame;
    TagLib::List<const Frame*> pictures;
    for (const TagLib::ID3v2::Frame* frame : tag->frameList("APIC"))
        if (const auto* picture = dynamic_cast<const Frame*>(frame))
            pictures.append(picture);
    return frontOrFirst(
        pictures, [](const Frame* p) { return p->type() == Frame::FrontCover; }, [](const Frame* p) { return p->picture(); });
}

Picture fromMPEG(TagLib::IOStream& stream)
{
    TagLib::MPEG::File file(&stream, TagLib::ID3v2::FrameFactory::instance(), false);
    return file.isValid() ? fromID3v2(file.ID3v2Tag()) : std::nullopt;
}

Picture fromMP4(TagLib::IOStream& stream)
{
    TagLib::MP4::File file(&stream, false);
    if (!file.isValid() || !file.tag() || !file.tag()->contains("covr"))
        return std::nullopt;
    const TagLib::MP4::CoverArtList covers = file.tag()->item("covr").toCoverArtList();
    return covers.isEmpty() ? std::nullopt : bytesOf(covers.front().data());
}

Picture fromFLAC(TagLib::IOStream& stream)
{
    TagLib::FLAC::File file(&stream, TagLib::ID3v2::FrameFactory::instance(), false);
    return file.isValid() ? fromFLACPictures(file.pictureList()) : std::nullopt;
}

// An Ogg file is Vorbis or Opus; the picture blocks are in its comment header either way.
Picture fromOgg(TagLib::IOStream& stream)
{
    {
        TagLib::Ogg::Vorbis::File vorbis(&stream, false);
        if (vorbis.isValid() && vorbis.tag())
            return fromFLACPictures(vorbis.tag()->pictureList());
    }
    stream.seek(0);
    TagLib::Ogg::Opus::File opus(&stream, false);
    return opus.isValid() && opus.tag() ? fromFLACPictures(opus.tag()->pictureList()) : std::nullopt;
}

Picture fromASF(TagLib::IOStream& stream)
{
    TagLib::ASF::File file(&stream, false);
    if (!file.isValid() || !file.tag() || !file.tag()->contains("WM/Picture"))
        return std::nullopt;
    TagLib::List<TagLib::ASF::Picture> pictures;
    for (const TagLib::ASF::Attribute& attribute : file.tag()->attribute("WM/Picture"))
        if (TagLib::ASF::Picture picture = attribute.toPicture(); picture.isValid())
            pictures.append(picture);
    return frontOrFirst(
        pictures, [](const TagLib::ASF::Picture& p) { return p.type() == TagLib::ASF::Picture::FrontCover; },
        [](const TagLib::ASF::Picture& p) { return p.picture(); });
}

Picture coverArtOfStream(TagLib::IOStream& stream, AudioContainer container)
{
    switch (container) {
    case AudioContainer::mpeg: return fromMPEG(stream);
    case AudioContainer::mp4: return fromMP4(stream);
    case AudioContainer::flac: return fromFLAC(stream);
    case AudioContainer::ogg: return fromOgg(stream);
    case AudioContainer::asf: return fromASF(stream);
    }
    return std::nullopt;
}

} // namespace

std::optional<AudioContainer> audioContainerOfType(std::string_view type)
{
    struct Family {
        std::string_view type;
        AudioContainer container;
    };
    static constexpr Family kFamilies[] = {
        {"public.mp3", AudioContainer::mpeg},
        {"public.mpeg-4-audio", AudioContainer::mp4},
        {"com.apple.protected-mpeg-4-audio", AudioContainer::mp4},
        {"org.xiph.flac", AudioContainer::flac},
        {"org.xiph.ogg-vorbis", AudioContainer::ogg},
        {"com.microsoft.windows-media-wma", AudioContainer::asf},
    };
    for (const Family& family : kFamilies)
        if (typeConformsTo(type, family.type))
            return family.container;
    return std::nullopt;
}

std::optional<std::vector<uint8_t>> coverArtOfBytes(std::span<const uint8_t> bytes, AudioContainer container)
{
    if (bytes.size() > size_t(std::numeric_limits<unsigned int>::max()))
        return std::nullopt;
    TagLib::ByteVector data(reinterpret_cast<const char*>(bytes.data()), static_cast<unsigned int>(bytes.size()));
    TagLib::ByteVectorStream stream(data);
    return coverArtOfStream(stream, container);
}

std::optional<std::vector<uint8_t>> coverArtOfFile(const std::string& path, AudioContainer container)
{
    auto file = openForReading(path, ReadableKinds::regularFiles);
    if (!file)
        return std::nullopt;
    auto status = fileStatus(file.value().get());
    if (!status || uint64_t(status.value().st_size) > kMaxAudioFileBytes
        || uint64_t(status.value().st_size) > uint64_t(std::numeric_limits<long>::max()))
        return std::nullopt;
    DescriptorStream stream(std::move(file.value()), long(status.value().st_size));
    return coverArtOfStream(stream, container);
}

} // namespace zon
