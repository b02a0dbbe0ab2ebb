// Fetches of one object, beside the reading of its bytes and the bare codec.
#include "FileSet.h"

#include <charls/charls.h>
#include <dicom/Dicom_Compressor.h>
#include <dicom/Dicom_OtherTypes.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

using namespace Bench;

constexpr int kSize = 512;
constexpr int kManyTurns = 5 * kTurns; // of some milliseconds each
constexpr Dicom_Tag kPixelData{0x7FE0, std::uint16_t(0x0010)};

std::unique_ptr<IOD_Msg> Fetch(Disk_RootDirectoryFile& root, SCL_MoveIdentifier const& identifier) {
  IOD_Msg* object = nullptr;
  Require(root.GetOne(identifier, 1, &object, nullptr) == 0 && object, "fetching");
  return std::unique_ptr<IOD_Msg>(object);
}

/// Into memory that nobody had before.
void ReadBytes(std::string const& path) {
  int const fd = open(path.c_str(), O_RDONLY);
  struct stat status {};
  Require(fd != -1 && fstat(fd, &status) == 0, "opening bytes");
  auto const bytes = std::make_unique_for_overwrite<char[]>(std::size_t(status.st_size));
  Require(read(fd, bytes.get(), std::size_t(status.st_size)) == status.st_size, "reading bytes");
  close(fd);
}

void Native(Scope const& scope) {
  Progress("fetching of a series of 50");
  Folder const folder(scope.base);
  auto const root = Open(folder.Path());
  auto const place = [](int i) {
    Phantom::Object object;
    object.image = i + 1;
    object.size = kSize;
    return object;
  };
  Fill(*root, kImages, place);
  std::vector<SCL_MoveIdentifier> by_id, by_uids;
  std::vector<std::string> paths;
  for (int i = 0; i < kImages; ++i) {
    SCL_QueryIdentifier const found = WhereIs(*root, place(i));
    by_id.emplace_back(found);
    by_uids.emplace_back(found);
    by_uids.back().Remove(kReferencedFileId);
    paths.push_back(PathOf(*root, place(i)));
  }
  for (auto const& [name, identifiers] : {std::pair{"by file ID", &by_id}, std::pair{"by UIDs", &by_uids}}) {
    Pair const took = MedianOfTurns(
        kManyTurns,
        [&, wanted = identifiers] { // Clang 14 captures no structured binding
          for (SCL_MoveIdentifier const& identifier : *wanted)
            Fetch(*root, identifier);
        },
        [&] {
          for (std::string const& path : paths)
            ReadBytes(path);
        });
    Report("fetch", name, "ours", kImages, took.first / kImages);
    Report("fetch", name, "bare", kImages, took.second / kImages);
  }
}

/// Fetching and decompressing one that was stored compressed, beside the codec alone on the stream and pixels.
void Compressed(Scope const& scope) {
  Progress("fetching of compressed objects");
  Folder const folder(scope.base);
  auto const root = Open(folder.Path(), 0);
  Phantom::Object const place{.size = kSize};
  auto const native = Phantom::Make(place);
  auto const* pixels = dynamic_cast<Dicom_OtherType const*>(native->Get(kPixelData));
  Require(pixels != nullptr, "the pixels");
  std::vector<char> const source(pixels->Bytes().begin(), pixels->Bytes().end());
  std::vector<char> stream(source.size() * 2), back(source.size());
  double const encoding = MedianOf(kTurns, [&] {
    charls::jpegls_encoder encoder;
    encoder.frame_info({kSize, kSize, place.bits, 1}).destination(stream);
    stream.resize(encoder.encode(source));
    stream.resize(source.size() * 2);
  });
  charls::jpegls_encoder encoder;
  encoder.frame_info({kSize, kSize, place.bits, 1}).destination(stream);
  stream.resize(encoder.encode(source));
  Store(*root, place);
  SCL_MoveIdentifier const wanted{WhereIs(*root, place)};
  Pair const took = MedianOfTurns(
      kTurns,
      [&] {
        auto const object = Fetch(*root, wanted);
        Require(Dicom_Compressor().Decompress(object.get()) == 0, "decompressing");
      },
      [&] {
        charls::jpegls_decoder decoder(stream, true);
        decoder.decode(back);
      });
  Require(back == source, "the codec's result");
  Report("fetch", "decompressed", "ours", 1, took.first);
  Report("fetch", "decompressed", "bare", 1, took.second);
  Report("codec", "encoding", "bare", 1, encoding);
}

} // namespace

void Bench::Fetches(Scope const& scope) {
  Native(scope);
  Compressed(scope);
}
