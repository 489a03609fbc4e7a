// Export of a card database to .jsonl, the inverse of the importer.
#include <fstream>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ombrel/cardstore/jsonl.h"
#include "ombrel/foundation/error.h"

namespace ombrel::jsonl {

namespace {

using Json = nlohmann::ordered_json;

const char* Extension(const std::string& format) {
  if (format == "jpeg") return "jpg";
  return format == "bmp" ? "bmp" : "png";
}

void Check(CSqliteCardStore& store, Status status) {
  if (status != 0) RaiseTrap("cannot export '" + store.Path() + "': " + store.GetLastError());
}

std::string Dump(const Json& j, int32_t cardId) {
  try {
    return j.dump(-1, ' ', false, Json::error_handler_t::strict);
  } catch (const Json::type_error&) {
    RaiseTrap(cardId ? "card " + std::to_string(cardId) + " holds text that is not valid UTF-8"
                     : "the database description holds text that is not valid UTF-8");
  }
}

// imageDir empty: images inline as data: URIs.
Counts Write(CSqliteCardStore& store, std::ostream& out, const std::filesystem::path& imageDir,
             const std::string& imageRef) {
  Counts counts;
  std::vector<CustomFieldDef> fields;
  std::vector<std::string> categories;
  Check(store, store.ListCustomFields(fields));
  Check(store, store.ListCategories(categories));
  if (!fields.empty() || !categories.empty()) {
    Json db = Json::object();
    if (!fields.empty()) {
      Json list = Json::array();
      for (const auto& f : fields) {
        list.push_back({{"name", f.name}, {"type", f.type}, {"visibility", f.visibility}, {"access", f.access}});
      }
      db["custom_fields"] = std::move(list);
    }
    if (!categories.empty()) db["categories"] = categories;
    out << Dump(Json{{"database", std::move(db)}}, 0) << '\n';
  }
  if (!imageDir.empty()) std::filesystem::create_directories(imageDir);

  auto image = [&](int32_t id, ImageSide side) -> std::string {
    StoredImage img;
    bool present = false;
    Check(store, store.GetImage(id, side, img, present));
    ++counts.images;
    if (imageDir.empty()) return ImageDataUri(img);
    std::string name = std::to_string(id) + (side == ImageSide::kFront ? "-front." : "-back.") + Extension(img.format);
    std::ofstream f(imageDir / name, std::ios::binary);
    f.write(reinterpret_cast<const char*>(img.bytes.data()), static_cast<std::streamsize>(img.bytes.size()));
    if (!f.flush()) RaiseTrap("cannot write '" + (imageDir / name).string() + "'");
    return imageRef + name;
  };

  Status status = store.ScanRecords([&](const CardRecordView& card) {
    Json line = Json::object();
    line["id"] = card.id;
    Json values = Json::object();
    for (const auto& [name, text] : card.values) values[std::string(name)] = std::string(text);
    line["values"] = std::move(values);
    if (card.hasFront) line["front_image"] = image(card.id, ImageSide::kFront);
    if (card.hasBack) line["back_image"] = image(card.id, ImageSide::kBack);
    out << Dump(line, card.id) << '\n';
    ++counts.cards;
    return static_cast<bool>(out);
  });
  Check(store, status);
  if (!out) RaiseTrap("cannot write the export of '" + store.Path() + "'");
  return counts;
}

}  // namespace

Counts Export(CSqliteCardStore& store, std::ostream& out) { return Write(store, out, {}, {}); }

Counts ExportFile(CSqliteCardStore& store, const std::filesystem::path& path) {
  std::string folder = path.stem().string() + "-images";
  // Written beside the target and renamed at the end, so a failed export
  // never leaves a half file under the requested name.
  std::filesystem::path partial = path;
  partial += ".partial";
  Counts counts;
  {
    std::ofstream out(partial, std::ios::binary | std::ios::trunc);
    if (!out) RaiseTrap("cannot create '" + partial.string() + "'");
    try {
      counts = Write(store, out, path.parent_path() / folder, folder + "/");
      out.flush();
      if (!out) RaiseTrap("cannot write '" + partial.string() + "'");
    } catch (...) {
      out.close();
      std::error_code ec;
      std::filesystem::remove(partial, ec);
      throw;
    }
  }
  std::error_code ec;
  std::filesystem::rename(partial, path, ec);
  if (ec) RaiseTrap("cannot rename '" + partial.string() + "' to '" + path.string() + "': " + ec.message());
  return counts;
}

}  // namespace ombrel::jsonl
