// The .jsonl interchange format of card databases: UTF-8, one JSON object a
// line. An optional first line describes the database,
//   {"database": {"custom_fields": [{"name": "Nickname", "type": "TEXT",
//     "visibility": "VISIBLE", "access": "READWRITE"}], "categories": ["Business"]}}
// and every other line is a card,
//   {"id": 42, "values": {"Name": "John Smith", "Phone 1.Label": "Mobile"},
//    "front_image": "images/42-front.png", "back_image": null}
// id is optional (the next free ID is assigned), values use the card store's
// value names and are stored exactly as given, and an image is a path
// relative to the .jsonl file or a data: URI (base64) of a PNG, JPEG or BMP.
// Cards keep the order of their lines.
//
// Import is all or nothing: the first bad line raises ombrel::Error naming
// the line and the reason, and nothing of the file stays in the database.
// Every card is read as the duplicate search reads it (CCardStoreMgr::ReadCard)
// and every image decoded, so a file the search could not read is refused
// here, naming the line, the card and the value.
// Export writes the same format back, values byte for byte and value names
// in their canonical spelling ("phone 1.label" comes back as "Phone 1.Label"),
// so import, export and import again gives the same database.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "ombrel/cardstore/sqlite_card_store.h"

namespace ombrel::jsonl {

struct Counts {
  int64_t cards = 0;
  int64_t images = 0;
  bool imagesInline = false;  // an export's images went into the lines as data: URIs
};

// What an import reads at most: an image (a file, or a data: URI once
// decoded) and one line (room for two such images as data: URIs).
inline constexpr uint64_t kMaxImageBytes = 50u << 20;
inline constexpr size_t kMaxLineBytes = 160u << 20;
// Raised by Import and Export when their stop function answers true; the
// database, and the export's target, are then as they were.
inline constexpr std::string_view kStoppedMessage = "stopped";

// Imports a file; image paths are relative to its folder. stop, when given,
// is asked after each line.
Counts ImportFile(CSqliteCardStore& store, const std::filesystem::path& path, const std::function<bool()>& stop = {});
// Imports from a stream; sourceName prefixes error messages.
Counts Import(CSqliteCardStore& store, std::istream& in, const std::filesystem::path& baseDir,
              const std::string& sourceName, const std::function<bool()>& stop = {});

// Writes every card, images as data: URIs. stop, when given, is asked
// before each card.
Counts Export(CSqliteCardStore& store, std::ostream& out, const std::function<bool()>& stop = {});
// Writes every card to path, symbolic links followed. A regular file (or a
// new one) is written whole or not at all: a temporary file beside it takes
// its name at the end; its images go to the folder "<stem>-images" beside
// it as "<id>-front.<ext>" / "<id>-back.<ext>", each written the same way and
// referenced relatively. A device or a pipe is written in place, with the
// images as data: URIs (imagesInline). The database itself and its -wal,
// -shm and -journal files are refused, however the path spells them.
Counts ExportFile(CSqliteCardStore& store, const std::filesystem::path& path, const std::function<bool()>& stop = {});

// Base64 (RFC 4648, padded). Decode answers false on any character outside
// the alphabet or a bad length.
std::string EncodeBase64(const std::vector<uint8_t>& bytes);
bool DecodeBase64(std::string_view text, std::vector<uint8_t>& bytes);

// "data:image/png;base64,..." for an image of format "png", "jpeg" or "bmp".
std::string ImageDataUri(const StoredImage& image);

}  // namespace ombrel::jsonl
