// Decoding an image through once, to refuse what no viewer could show: PNG
// through libpng, JPEG through libjpeg, BMP by its headers (no library for it
// on a plain C++ core; its pixels are plain rows whose size the headers fix).
// Rows are decoded one at a time into one buffer, so the memory taken stays
// that of a row whatever the picture claims.
#include <png.h>
// jpeglib.h needs size_t and FILE declared first.
#include <cstddef>
#include <cstdio>
#include <jpeglib.h>

#include <csetjmp>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ombrel/cardstore/image_registry.h"

namespace ombrel {

namespace {

// Larger pictures are no business card scan; the bound also caps the time
// a decode may take.
constexpr uint32_t kMaxSide = 30000;
constexpr uint64_t kMaxPixels = 100'000'000;

std::string SizeError(uint64_t width, uint64_t height) {
  if (width == 0 || height == 0) return "it has no pixels";
  if (width > kMaxSide || height > kMaxSide || width * height > kMaxPixels) {
    return "it is " + std::to_string(width) + " x " + std::to_string(height) + " pixels (at most " +
           std::to_string(kMaxSide) + " a side and " + std::to_string(kMaxPixels) + " in all)";
  }
  return {};
}

// ---- PNG ----------------------------------------------------------------------

struct PngInput {
  const uint8_t* data;
  size_t size;
  size_t at = 0;
  char error[200] = {};
};

void PngRead(png_structp png, png_bytep out, png_size_t length) {
  auto* in = static_cast<PngInput*>(png_get_io_ptr(png));
  if (length > in->size - in->at) png_error(png, "the file ends in the middle of the image");
  std::memcpy(out, in->data + in->at, length);
  in->at += length;
}

void PngError(png_structp png, png_const_charp message) {
  auto* in = static_cast<PngInput*>(png_get_io_ptr(png));
  if (in && in->error[0] == 0) std::snprintf(in->error, sizeof in->error, "%s", message);
  png_longjmp(png, 1);
}

void PngWarning(png_structp, png_const_charp) {}

// Plain C in its own frame: nothing with a destructor lives across the jump.
// Answers false with in.error set (or size set) when the image is refused.
bool DecodePng(PngInput& in, std::vector<uint8_t>& row, uint32_t& width, uint32_t& height) {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, PngError, PngWarning);
  if (!png) return false;
  png_infop info = png_create_info_struct(png);
  if (!info) {
    png_destroy_read_struct(&png, nullptr, nullptr);
    return false;
  }
  png_set_read_fn(png, &in, PngRead);
  bool ok = false;
  if (setjmp(png_jmpbuf(png)) == 0) {
    png_set_user_limits(png, kMaxSide, kMaxSide);
    png_read_info(png, info);
    width = png_get_image_width(png, info);
    height = png_get_image_height(png, info);
    if (SizeError(width, height).empty()) {
      const int passes = png_set_interlace_handling(png);
      png_read_update_info(png, info);
      row.resize(png_get_rowbytes(png, info));
      for (int pass = 0; pass < passes; ++pass)
        for (uint32_t y = 0; y < height; ++y) png_read_row(png, row.data(), nullptr);
      png_read_end(png, nullptr);
      ok = true;
    }
  }
  png_destroy_read_struct(&png, &info, nullptr);
  return ok;
}

// ---- JPEG ---------------------------------------------------------------------

struct JpegErrors {
  jpeg_error_mgr mgr;
  jmp_buf jump;
  char error[JMSG_LENGTH_MAX] = {};
};

void JpegFail(j_common_ptr info) {
  auto* errors = reinterpret_cast<JpegErrors*>(info->err);
  if (errors->error[0] == 0) (*info->err->format_message)(info, errors->error);
  std::longjmp(errors->jump, 1);
}

// Damaged data only warns (a grey band in the picture): a warning refuses too.
void JpegMessage(j_common_ptr info, int level) {
  if (level < 0) JpegFail(info);
}

bool DecodeJpeg(const std::vector<uint8_t>& bytes, JpegErrors& errors, std::vector<uint8_t>& row, uint32_t& width,
                uint32_t& height) {
  jpeg_decompress_struct info;
  info.err = jpeg_std_error(&errors.mgr);
  errors.mgr.error_exit = JpegFail;
  errors.mgr.emit_message = JpegMessage;
  bool ok = false;
  if (setjmp(errors.jump) == 0) {
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, bytes.data(), static_cast<unsigned long>(bytes.size()));
    jpeg_read_header(&info, TRUE);
    width = info.image_width;
    height = info.image_height;
    if (SizeError(width, height).empty()) {
      jpeg_start_decompress(&info);
      row.resize(static_cast<size_t>(info.output_width) * info.output_components);
      JSAMPROW rows[1] = {row.data()};
      while (info.output_scanline < info.output_height) jpeg_read_scanlines(&info, rows, 1);
      jpeg_finish_decompress(&info);
      ok = true;
    }
  }
  jpeg_destroy_decompress(&info);
  return ok;
}

// ---- BMP ----------------------------------------------------------------------

uint32_t Le32(const std::vector<uint8_t>& b, size_t at) {
  return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | static_cast<uint32_t>(b[at + 3]) << 24;
}
uint16_t Le16(const std::vector<uint8_t>& b, size_t at) { return static_cast<uint16_t>(b[at] | b[at + 1] << 8); }

// The file header, the bitmap header, the palette and the pixel rows must
// all be there, in their sizes.
std::string CheckBmp(const std::vector<uint8_t>& b) {
  if (b.size() < 26) return "the file ends inside its headers";
  const uint64_t pixelsAt = Le32(b, 10);
  const uint32_t header = Le32(b, 14);
  int64_t width = 0, height = 0;
  uint32_t bits = 0, compression = 0, colours = 0;
  if (header == 12) {  // the oldest header: 16-bit sizes
    width = Le16(b, 18);
    height = Le16(b, 20);
    if (Le16(b, 22) != 1) return "its plane count is not 1";
    bits = Le16(b, 24);
  } else if (header == 40 || header == 52 || header == 56 || header == 108 || header == 124) {
    if (b.size() < 14 + static_cast<size_t>(header)) return "the file ends inside its headers";
    width = static_cast<int32_t>(Le32(b, 18));
    height = static_cast<int32_t>(Le32(b, 22));
    if (Le16(b, 26) != 1) return "its plane count is not 1";
    bits = Le16(b, 28);
    compression = Le32(b, 30);
    colours = Le32(b, 46);
  } else {
    return "its bitmap header has an unknown size " + std::to_string(header);
  }
  if (width <= 0 || height == 0 || height == INT32_MIN) return "its size is not a picture's";
  const uint64_t rows = static_cast<uint64_t>(height < 0 ? -height : height);
  if (std::string size = SizeError(static_cast<uint64_t>(width), rows); !size.empty()) return size;
  if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32)
    return "it has " + std::to_string(bits) + " bits a pixel";
  // 0 plain rows, 1 and 2 run-length coded (8 and 4 bits), 3 and 6 plain rows with bit masks.
  if (compression > 3 && compression != 6) return "its compression " + std::to_string(compression) + " is unknown";
  if ((compression == 1 && bits != 8) || (compression == 2 && bits != 4) ||
      ((compression == 3 || compression == 6) && bits != 16 && bits != 32))
    return "its compression does not fit its " + std::to_string(bits) + " bits a pixel";
  if (bits <= 8) {
    if (colours > (1u << bits)) return "its palette holds more colours than its pixels can name";
    const uint64_t entry = header == 12 ? 3 : 4;
    const uint64_t palette = (colours == 0 ? 1u << bits : colours) * entry;
    if (14 + header + palette > pixelsAt) return "its palette runs into its pixels";
  }
  if (pixelsAt > b.size()) return "its pixels begin after the end of the file";
  const uint64_t available = b.size() - pixelsAt;
  if (compression == 1 || compression == 2) {
    // Runs decode to at most the picture; all they must do is be there.
    if (available < 2) return "its pixels are missing";
    return {};
  }
  const uint64_t stride = (static_cast<uint64_t>(width) * bits + 31) / 32 * 4;
  if (stride * rows > available) return "the file ends before its last row of pixels";
  return {};
}

}  // namespace

std::string ImageRegistry::CheckDecodes(const std::vector<uint8_t>& bytes, std::string& format) {
  format = DetectFormat(bytes);
  if (format.empty()) return "it is not a PNG, JPEG or BMP image";
  std::vector<uint8_t> row;
  uint32_t width = 0, height = 0;
  if (format == "png") {
    PngInput in{bytes.data(), bytes.size()};
    if (DecodePng(in, row, width, height)) return {};
    if (in.error[0] != 0) return std::string("it is a damaged PNG image (") + in.error + ")";
    if (std::string size = SizeError(width, height); !size.empty()) return "it is too large a PNG image: " + size;
    return "it is a PNG image that cannot be read";
  }
  if (format == "jpeg") {
    JpegErrors errors;
    if (DecodeJpeg(bytes, errors, row, width, height)) return {};
    if (errors.error[0] != 0) return std::string("it is a damaged JPEG image (") + errors.error + ")";
    if (std::string size = SizeError(width, height); !size.empty()) return "it is too large a JPEG image: " + size;
    return "it is a JPEG image that cannot be read";
  }
  std::string error = CheckBmp(bytes);
  return error.empty() ? error : "it is a damaged BMP image (" + error + ")";
}

}  // namespace ombrel
