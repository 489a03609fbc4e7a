// Export of a card database to .jsonl, the inverse of the importer.
#include <ext/stdio_filebuf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
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

namespace fs = std::filesystem;

std::string Quoted(const fs::path& p) { return "'" + p.string() + "'"; }

// error 0: the stream failed earlier and the reason is gone.
[[noreturn]] void FailOn(const fs::path& p, const std::string& what, int error) {
  RaiseTrap("cannot " + what + " " + Quoted(p) + (error ? std::string(": ") + std::strerror(error) : std::string()));
}

// A file written whole or not at all: a temporary file in the target's own
// folder (one without a name while the system offers that, so a killed
// export leaves nothing behind), renamed over the target at the end.
class WholeFile {
 public:
  explicit WholeFile(fs::path target) : target_(std::move(target)) {
    const fs::path dir = target_.has_parent_path() ? target_.parent_path() : fs::path(".");
    fd_ = ::open(dir.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    if (fd_ < 0) {
      // No unnamed files on this file system: a named one, hidden.
      std::string pattern = (dir / ("." + target_.filename().string() + ".XXXXXX")).string();
      fd_ = ::mkstemp(pattern.data());
      if (fd_ < 0) FailOn(target_, "create a file beside", errno);
      named_ = pattern;
      const mode_t mask = ::umask(0);
      ::umask(mask);
      ::fchmod(fd_, 0666 & ~mask);
    }
    buf_.emplace(fd_, std::ios::out, static_cast<size_t>(1) << 16);
    out_.rdbuf(&*buf_);
  }
  ~WholeFile() {
    out_.rdbuf(nullptr);
    buf_.reset();  // closes fd_
    if (!named_.empty()) ::unlink(named_.c_str());
  }
  WholeFile(const WholeFile&) = delete;
  WholeFile& operator=(const WholeFile&) = delete;

  std::ostream& Stream() { return out_; }

  // Everything written reaches the disk, then takes the target's name.
  void Commit() {
    errno = 0;
    out_.flush();
    if (!out_) FailOn(target_, "write", errno);
    struct stat st {};
    if (::stat(target_.c_str(), &st) == 0) ::fchmod(fd_, st.st_mode & 07777);  // a file replaced keeps its mode
    if (::fsync(fd_) != 0) FailOn(target_, "write", errno);
    if (named_.empty()) {
      // Give the unnamed file a hidden name first: linking cannot replace.
      std::string pattern = (target_.parent_path() / ("." + target_.filename().string() + ".XXXXXX")).string();
      const std::string proc = "/proc/self/fd/" + std::to_string(fd_);
      for (int attempt = 0; named_.empty(); ++attempt) {
        std::string name = pattern;
        const int probe = ::mkstemp(name.data());  // a free name, taken back at once
        if (probe < 0) FailOn(target_, "create a file beside", errno);
        ::close(probe);
        ::unlink(name.c_str());
        if (::linkat(AT_FDCWD, proc.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) named_ = name;
        else if (errno != EEXIST || attempt > 8) FailOn(target_, "create a file beside", errno);
      }
    }
    if (::rename(named_.c_str(), target_.c_str()) != 0) FailOn(target_, "replace", errno);
    named_.clear();
  }

 private:
  fs::path target_;
  int fd_ = -1;
  std::string named_;  // the temporary file's name, while it has one
  std::optional<__gnu_cxx::stdio_filebuf<char>> buf_;
  std::ostream out_{nullptr};
};

// Where an export goes once symbolic links are followed: a link is written
// through, never replaced.
fs::path FollowLinks(const fs::path& requested) {
  fs::path p = requested;
  for (int hop = 0; hop < 40; ++hop) {
    std::error_code ec;
    if (!fs::is_symlink(fs::symlink_status(p, ec))) return p;
    fs::path next = fs::read_symlink(p, ec);
    if (ec) RaiseTrap("cannot export to " + Quoted(requested) + ": " + ec.message());
    p = next.is_absolute() ? next : p.parent_path() / next;
  }
  RaiseTrap("cannot export to " + Quoted(requested) + ": too many symbolic links");
}

// The same file, however spelled: by identity when both exist, else by
// where they would be.
bool SameFile(const fs::path& a, const fs::path& b) {
  std::error_code ec;
  if (fs::exists(a, ec) && fs::exists(b, ec)) return fs::equivalent(a, b, ec);
  std::error_code ea, eb;
  const fs::path ca = fs::weakly_canonical(a, ea), cb = fs::weakly_canonical(b, eb);
  return !ea && !eb && ca == cb;
}

// An export must never write over the database it reads, nor over the
// files SQLite keeps beside it.
void RefuseDatabaseFiles(const fs::path& target, const fs::path& requested, const std::string& database) {
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
    if (!SameFile(target, database + suffix)) continue;
    RaiseTrap("cannot export to " + Quoted(requested) + ": it is " +
              (*suffix ? "the " + std::string(suffix + 1) + " file of the database" : std::string("the database")) +
              " being exported");
  }
}

// imageDir empty: images inline as data: URIs.
Counts Write(CSqliteCardStore& store, std::ostream& out, const std::filesystem::path& imageDir,
             const std::string& imageRef, const std::function<bool()>& stop) {
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
    WholeFile f(imageDir / name);
    f.Stream().write(reinterpret_cast<const char*>(img.bytes.data()), static_cast<std::streamsize>(img.bytes.size()));
    f.Commit();
    return imageRef + name;
  };

  bool stopped = false;
  Status status = store.ScanRecords([&](const CardRecordView& card) {
    if (stop && stop()) {
      stopped = true;
      return false;
    }
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
  if (stopped) RaiseTrap(std::string(kStoppedMessage));
  return counts;  // whether out took it all is for the caller to tell, naming the target
}

}  // namespace

Counts Export(CSqliteCardStore& store, std::ostream& out, const std::function<bool()>& stop) {
  Counts counts = Write(store, out, {}, {}, stop);
  if (!out) RaiseTrap("cannot write the export of '" + store.Path() + "'");
  return counts;
}

Counts ExportFile(CSqliteCardStore& store, const std::filesystem::path& path, const std::function<bool()>& stop) {
  const fs::path target = FollowLinks(path);
  RefuseDatabaseFiles(target, path, store.Path());
  std::error_code ec;
  const fs::file_status status = fs::status(target, ec);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    if (fs::is_directory(status)) RaiseTrap("cannot export to " + Quoted(path) + ": it is a folder");
    if (fs::is_socket(status)) RaiseTrap("cannot export to " + Quoted(path) + ": it is a socket");
    // A device or a pipe is written in place, and has no folder beside it
    // for images: they travel inside the lines.
    const int fd = ::open(target.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) FailOn(path, "open", errno);
    __gnu_cxx::stdio_filebuf<char> buf(fd, std::ios::out, static_cast<size_t>(1) << 16);  // closes fd
    std::ostream out(&buf);
    Counts counts = Write(store, out, {}, {}, stop);
    errno = 0;
    out.flush();
    if (!out) FailOn(path, "write", errno);
    counts.imagesInline = true;
    return counts;
  }
  // A regular file (or none yet) is replaced whole at the end, so a failed
  // or stopped export leaves the old one as it was.
  const std::string folder = target.stem().string() + "-images";
  WholeFile file(target);
  Counts counts = Write(store, file.Stream(), target.parent_path() / folder, folder + "/", stop);
  file.Commit();
  return counts;
}

}  // namespace ombrel::jsonl
