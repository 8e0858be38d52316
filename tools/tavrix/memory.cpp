#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "quern/cfmt.h"
#include "tools/tavrix/commands.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

namespace {

using namespace quern;

// A file of any size, read forwards and from places.
class Input {
 public:
  explicit Input(const std::string& name) : stream_(name, std::ios::binary) {
    if (!stream_.is_open()) throw std::runtime_error("cannot open '" + name + "'");
  }

  // Behind the end, also where the system refuses to go, there is nothing to read.
  void Seek(uint64_t place) {
    auto offset = static_cast<std::streamoff>(std::min<uint64_t>(place, INT64_MAX));
    if (stream_.seekg(offset)) return;
    stream_.clear();
    if (!stream_.seekg(0, std::ios::end)) throw std::runtime_error("the file has only a beginning");
  }

  // Fewer bytes than wanted are all that are left.
  size_t Read(char* block, size_t wanted) {
    stream_.read(block, static_cast<std::streamsize>(wanted));
    if (stream_.bad()) throw std::runtime_error("the file cannot be read");
    auto size = static_cast<size_t>(stream_.gcount());
    if (size < wanted) stream_.clear();
    return size;
  }

 private:
  std::ifstream stream_;
};

// --- dump ----------------------------------------------------------------------------------------

struct DumpOptions {
  std::string file, offset = "0", length, base = "0";
  bool addresses = false, fileOffsets = false;
};

int Dump(const DumpOptions& options) {
  uint64_t offset = LongNumber("--offset", options.offset);
  uint64_t left = options.length.empty() ? UINT64_MAX : LongNumber("--length", options.length);
  uint32_t base = Number("--base", options.base, UINT32_MAX);
  uint32_t label = options.addresses     ? DUMP_ADDRESS
                   : options.fileOffsets ? DUMP_FILEOFFSET
                                         : DUMP_OFFSET;
  if (label != DUMP_ADDRESS) base += static_cast<uint32_t>(offset);
  Input input(options.file);
  if (offset != 0) input.Seek(offset);
  FmtDump(nullptr, 0, 0, label | DUMP_HEADER | DUMP_RULER);
  static char block[65536];  // whole lines
  for (size_t size = sizeof block; left != 0 && size == sizeof block; left -= size) {
    size = input.Read(block, static_cast<size_t>(std::min<uint64_t>(sizeof block, left)));
    FmtDump(block, static_cast<uint32_t>(size), base, label);
    base += static_cast<uint32_t>(size);
    RequireWritten();
  }
  return 0;
}

// --- unhex ---------------------------------------------------------------------------------------

constexpr std::pair<const char*, uint32_t> kModes[] = {
    {"bytes", UNHEX_BYTES}, {"fit", UNHEX_FIT}, {"words", UNHEX_WORDS}, {"long", UNHEX_LONG}};

int Unhex(const std::vector<std::string>& texts, const std::string& mode) {
  std::string text;
  for (const std::string& part : texts) text += part + ' ';
  uint32_t code = 0;
  for (const auto& [name, value] : kModes)
    if (mode == name) code = value;
  std::vector<char> bytes(4 * text.size() + 1);  // four for a digit and a blank are the most
  uint32_t count = FmtUnhex(text.c_str(), static_cast<uint32_t>(text.size()), bytes.data(), code);
  if (count == 0) throw std::runtime_error("the text is not hexadecimal");
#ifdef _WIN32
  _setmode(_fileno(stdout), _O_BINARY);
#endif
  fwrite(bytes.data(), 1, count, stdout);
  return 0;
}

// --- header --------------------------------------------------------------------------------------

constexpr FieldDesc Title(const char* name) { return {0, FIELD_STRUCT, name, 0, 0, nullptr}; }
constexpr FieldDesc U8(const char* name, const char* comment = nullptr) {
  return {0, FIELD_UNSIGNED | FIELD_CHAR | 1, name, 0, 0, comment};
}
constexpr FieldDesc U16(const char* name, const char* comment = nullptr) {
  return {0, FIELD_UNSIGNED | FIELD_SHORT | 2, name, 0, 0, comment};
}
constexpr FieldDesc U32(const char* name, const char* comment = nullptr) {
  return {0, FIELD_UNSIGNED | FIELD_LONG | 4, name, 0, 0, comment};
}
constexpr FieldDesc U64(const char* name) {  // shown with the low half first
  return {0, FIELD_UNSIGNED | FIELD_LONG | 8, name, 0, 0, nullptr};
}
constexpr FieldDesc I32(const char* name, const char* comment = nullptr) {
  return {0, FIELD_LONG | 4, name, 0, 0, comment};
}
constexpr FieldDesc Is(uint32_t value, const char* name) {  // a value of 0 stands first
  return {0, FIELD_CONSTANT, name, value, 0, nullptr};
}
constexpr FieldDesc Bit(uint32_t bits, const char* name) {
  return {0, FIELD_BIT, name, bits, 0, nullptr};
}
constexpr FieldDesc kEnd = {0, 0, nullptr, 0, 0, nullptr};

constexpr uint32_t Letters(const char* text) {
  uint32_t value = 0;
  for (int i = 3; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(text[i]);
  return value;
}

constexpr uint32_t kBitmap = 0x4D42, kProgram = 0x5A4D;  // "BM", "MZ"
constexpr uint32_t kPe32 = 0x10B, kPe64 = 0x20B;

using Rows = std::vector<FieldDesc>;

const Rows kBmpFile = {Title("BITMAPFILEHEADER"),
                       U16("bfType"),
                       Is(kBitmap, "BM"),
                       U32("bfSize"),
                       U16("bfReserved1"),
                       U16("bfReserved2"),
                       U32("bfOffBits", "where the pixels begin"),
                       kEnd};

const Rows kBmpCore = {
    Title("BITMAPCOREHEADER"), U32("bcSize"), U16("bcWidth"), U16("bcHeight"), U16("bcPlanes"),
    U16("bcBitCount"),         kEnd};

const Rows kBmpInfo = {Title("BITMAPINFOHEADER"),
                       U32("biSize"),
                       Is(40, "INFOHEADER"),
                       Is(108, "V4HEADER"),
                       Is(124, "V5HEADER"),
                       I32("biWidth"),
                       I32("biHeight", "negative: the top row first"),
                       U16("biPlanes"),
                       U16("biBitCount"),
                       U32("biCompression"),
                       Is(0, "RGB"),
                       Is(1, "RLE8"),
                       Is(2, "RLE4"),
                       Is(3, "BITFIELDS"),
                       Is(4, "JPEG"),
                       Is(5, "PNG"),
                       Is(6, "ALPHABITFIELDS"),
                       U32("biSizeImage"),
                       I32("biXPelsPerMeter"),
                       I32("biYPelsPerMeter"),
                       U32("biClrUsed"),
                       U32("biClrImportant"),
                       kEnd};

const Rows kRiff = {Title("RIFF"), U32("id"),   Is(Letters("RIFF"), "RIFF"),
                    U32("size"),   U32("form"), Is(Letters("WAVE"), "WAVE"),
                    kEnd};

const Rows kWavFormat = {Title("WAVEFORMAT"),
                         U32("id"),
                         Is(Letters("fmt "), "fmt"),
                         U32("size"),
                         U16("wFormatTag"),
                         Is(0x1, "PCM"),
                         Is(0x2, "ADPCM"),
                         Is(0x3, "IEEE_FLOAT"),
                         Is(0x6, "ALAW"),
                         Is(0x7, "MULAW"),
                         Is(0x11, "DVI_ADPCM"),
                         Is(0x31, "GSM610"),
                         Is(0x55, "MPEGLAYER3"),
                         Is(0xFFFE, "EXTENSIBLE"),
                         U16("nChannels"),
                         U32("nSamplesPerSec"),
                         U32("nAvgBytesPerSec"),
                         U16("nBlockAlign"),
                         U16("wBitsPerSample"),
                         kEnd};

const Rows kDos = {Title("IMAGE_DOS_HEADER"),
                   U16("e_magic"),
                   Is(kProgram, "MZ"),
                   U16("e_cblp"),
                   U16("e_cp"),
                   U16("e_crlc"),
                   U16("e_cparhdr"),
                   U16("e_minalloc"),
                   U16("e_maxalloc"),
                   U16("e_ss"),
                   U16("e_sp"),
                   U16("e_csum"),
                   U16("e_ip"),
                   U16("e_cs"),
                   U16("e_lfarlc"),
                   U16("e_ovno"),
                   U64("e_res"),
                   U16("e_oemid"),
                   U16("e_oeminfo"),
                   U64("e_res2"),
                   U64("e_res2 + 8"),
                   U32("e_res2 + 16"),
                   U32("e_lfanew", "where the PE header begins"),
                   kEnd};

const Rows kPeFile = {Title("IMAGE_FILE_HEADER"),
                      U32("Signature"),
                      Is(Letters("PE\0"), "PE"),
                      U16("Machine"),
                      Is(0x14C, "I386"),
                      Is(0x166, "R4000"),
                      Is(0x184, "ALPHA"),
                      Is(0x1C0, "ARM"),
                      Is(0x1C4, "ARMNT"),
                      Is(0x1F0, "POWERPC"),
                      Is(0x200, "IA64"),
                      Is(0x8664, "AMD64"),
                      Is(0xAA64, "ARM64"),
                      U16("NumberOfSections"),
                      U32("TimeDateStamp"),
                      U32("PointerToSymbols"),
                      U32("NumberOfSymbols"),
                      U16("OptionalHeaderSize"),
                      U16("Characteristics"),
                      Bit(0x1, "NO_RELOCS"),
                      Bit(0x2, "EXECUTABLE"),
                      Bit(0x4, "NO_LINES"),
                      Bit(0x8, "NO_LOCALS"),
                      Bit(0x10, "TRIM_WORKING_SET"),
                      Bit(0x20, "LARGE_ADDRESS"),
                      Bit(0x100, "32BIT"),
                      Bit(0x200, "NO_DEBUG"),
                      Bit(0x400, "SWAP_RUN_DISK"),
                      Bit(0x800, "SWAP_RUN_NET"),
                      Bit(0x1000, "SYSTEM"),
                      Bit(0x2000, "DLL"),
                      Bit(0x4000, "ONE_PROCESSOR"),
                      kEnd};

const Rows kPeOptional = {Title("IMAGE_OPTIONAL_HEADER"),
                          U16("Magic"),
                          Is(kPe32, "PE32"),
                          Is(kPe64, "PE32+"),
                          U8("MajorLinkerVersion"),
                          U8("MinorLinkerVersion"),
                          U32("SizeOfCode"),
                          U32("InitializedData"),
                          U32("UninitializedData"),
                          U32("EntryPoint"),
                          U32("BaseOfCode")};
const Rows kPeBase32 = {U32("BaseOfData"), U32("ImageBase")};
const Rows kPeBase64 = {U32("ImageBase"), U32("ImageBase, high")};
const Rows kPeOptionalRest = {U32("SectionAlignment"),
                              U32("FileAlignment"),
                              U16("MajorOSVersion"),
                              U16("MinorOSVersion"),
                              U16("MajorImageVersion"),
                              U16("MinorImageVersion"),
                              U16("MajorSubsystemVer"),
                              U16("MinorSubsystemVer"),
                              U32("Win32VersionValue"),
                              U32("SizeOfImage"),
                              U32("SizeOfHeaders"),
                              U32("CheckSum"),
                              U16("Subsystem"),
                              Is(1, "NATIVE"),
                              Is(2, "WINDOWS_GUI"),
                              Is(3, "WINDOWS_CUI"),
                              Is(5, "OS2_CUI"),
                              Is(7, "POSIX_CUI"),
                              Is(9, "WINDOWS_CE_GUI"),
                              Is(10, "EFI_APPLICATION"),
                              Is(11, "EFI_BOOT_DRIVER"),
                              Is(12, "EFI_RUNTIME_DRIVER"),
                              Is(13, "EFI_ROM"),
                              U16("DllCharacteristics"),
                              Bit(0x20, "HIGH_ENTROPY"),
                              Bit(0x40, "DYNAMIC_BASE"),
                              Bit(0x80, "FORCE_INTEGRITY"),
                              Bit(0x100, "NX"),
                              Bit(0x200, "NO_ISOLATION"),
                              Bit(0x400, "NO_SEH"),
                              Bit(0x800, "NO_BIND"),
                              Bit(0x1000, "APPCONTAINER"),
                              Bit(0x2000, "WDM_DRIVER"),
                              Bit(0x4000, "GUARD_CF"),
                              Bit(0x8000, "TS_AWARE"),
                              kEnd};
constexpr uint32_t kOptionalShown = 72;  // bytes, with either base

const Rows kPeSection = {Title("IMAGE_SECTION_HEADER"),
                         U32("VirtualSize"),
                         U32("VirtualAddress"),
                         U32("SizeOfRawData"),
                         U32("PointerToRawData"),
                         U32("PointerToRelocs"),
                         U32("PointerToLines"),
                         U16("NumberOfRelocs"),
                         U16("NumberOfLines"),
                         U32("Characteristics"),
                         Bit(0x20, "CODE"),
                         Bit(0x40, "DATA"),
                         Bit(0x80, "ZERO_DATA"),
                         Bit(0x02000000, "DISCARDABLE"),
                         Bit(0x08000000, "NOT_PAGED"),
                         Bit(0x10000000, "SHARED"),
                         Bit(0x20000000, "EXECUTE"),
                         Bit(0x40000000, "READ"),
                         Bit(0x80000000, "WRITE"),
                         kEnd};
constexpr uint32_t kSectionName = 8;  // bytes in front of these

uint32_t SizeOf(const Rows& rows) {
  uint32_t size = 0;
  for (const FieldDesc& row : rows) size += row.fFlags & FIELD_SIZE;
  return size;
}

// The headers of a file. They are printed when all are there.
class Headers {
 public:
  explicit Headers(const std::string& file) : input_(file) {}

  std::vector<char> BytesAt(uint64_t place, size_t size) {
    std::vector<char> bytes(size);
    input_.Seek(place);
    if (input_.Read(bytes.data(), size) < size)
      throw std::runtime_error("the file ends within its headers");
    return bytes;
  }
  uint32_t U16At(uint64_t place) { return Low(BytesAt(place, 2)); }
  uint32_t U32At(uint64_t place) { return Low(BytesAt(place, 4)); }

  // Returns where the structure ends.
  uint64_t Add(uint64_t place, Rows rows, std::string title = "") {
    uint32_t size = SizeOf(rows);
    parts_.push_back({std::move(rows), std::move(title), BytesAt(place, size)});
    return place + size;
  }

  void Print() {
    for (Part& part : parts_) {
      if (!part.title.empty()) part.rows[0].pszName = part.title.c_str();
      FmtStruct(part.rows.data(), part.bytes.data());
    }
  }

 private:
  struct Part {
    Rows rows;
    std::string title;
    std::vector<char> bytes;
  };

  static uint32_t Low(const std::vector<char>& bytes) {
    uint32_t value = 0;
    for (size_t i = bytes.size(); i-- > 0;)
      value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return value;
  }

  Input input_;
  std::vector<Part> parts_;
};

void ReadBmp(Headers* headers) {
  uint64_t info = headers->Add(0, kBmpFile);
  uint32_t size = headers->U32At(info);
  if (size != SizeOf(kBmpCore) && size < SizeOf(kBmpInfo))
    throw std::runtime_error("a bitmap header of an unknown size");
  headers->Add(info, size == SizeOf(kBmpCore) ? kBmpCore : kBmpInfo);
}

void ReadWav(Headers* headers) {
  uint64_t chunk = headers->Add(0, kRiff);
  if (headers->U32At(8) != Letters("WAVE")) throw std::runtime_error("a RIFF file of another form");
  while (headers->U32At(chunk) != Letters("fmt ")) {
    uint32_t size = headers->U32At(chunk + 4);
    chunk += uint64_t{8} + size + size % 2;
  }
  headers->Add(chunk, kWavFormat);
}

void ReadPe(Headers* headers) {
  constexpr uint64_t kPlaceOfPe = 0x3C, kSectionCount = 6, kOptionalSize = 20;
  headers->Add(0, kDos);
  const uint64_t pe = headers->U32At(kPlaceOfPe);
  if (headers->U32At(pe) != Letters("PE\0"))
    throw std::runtime_error("a program without a PE header");
  const uint64_t optional = headers->Add(pe, kPeFile);
  const uint32_t optionalSize = headers->U16At(pe + kOptionalSize);
  if (optionalSize != 0) {
    uint32_t magic = headers->U16At(optional);
    if (optionalSize < kOptionalShown || (magic != kPe32 && magic != kPe64))
      throw std::runtime_error("an unknown optional header");
    Rows rows = kPeOptional;
    const Rows& base = magic == kPe32 ? kPeBase32 : kPeBase64;
    rows.insert(rows.end(), base.begin(), base.end());
    rows.insert(rows.end(), kPeOptionalRest.begin(), kPeOptionalRest.end());
    headers->Add(optional, std::move(rows));
  }
  uint64_t section = optional + optionalSize;
  for (uint32_t left = headers->U16At(pe + kSectionCount); left > 0; --left) {
    std::vector<char> name = headers->BytesAt(section, kSectionName);
    auto length = std::find(name.begin(), name.end(), '\0') - name.begin();
    char text[kSectionName + 1];
    FmtHex(name.data(), static_cast<uint32_t>(length), text, FMT_CHARS);
    section = headers->Add(section + kSectionName, kPeSection,
                           std::string(kPeSection[0].pszName) + " \"" + text + '"');
  }
}

int Header(const std::string& file) {
  Headers headers(file);
  uint32_t begin = headers.U16At(0);
  if (begin == kBitmap) {
    ReadBmp(&headers);
  } else if (begin == kProgram) {
    ReadPe(&headers);
  } else if (headers.U32At(0) == Letters("RIFF")) {
    ReadWav(&headers);
  } else {
    throw std::runtime_error("neither a bitmap nor a wave file nor a program");
  }
  headers.Print();
  return 0;
}

}  // namespace

void AddMemoryCommands(CLI::App& app, int& result) {
  auto options = std::make_shared<DumpOptions>();
  CLI::App* dump = app.add_subcommand("dump", "Print the bytes of a file and their characters.");
  dump->add_option("FILE", options->file, "The file")->required();
  dump->add_option("--offset", options->offset, "Offset of the first byte; 0 if left out");
  dump->add_option("--length", options->length, "Bytes at most; all if left out");
  dump->add_option("--base", options->base, "A number to add to each label; 0 if left out");
  CLI::Option* addresses = dump->add_flag("--address", options->addresses,
                                          "Label the lines as addresses, from that of the "
                                          "memory read into");
  dump->add_flag("--file-offset", options->fileOffsets, "Title the offset column FileOffset")
      ->excludes(addresses);
  dump->callback([=, &result] { result = Dump(*options); });

  auto texts = std::make_shared<std::vector<std::string>>();
  auto mode = std::make_shared<std::string>("bytes");
  CLI::App* unhex = app.add_subcommand("unhex", "Write the bytes that hex numbers stand for.");
  unhex->add_option("TEXT", *texts, "Hex numbers with blanks between them")->required();
  unhex
      ->add_option("--mode", *mode,
                   "How a number is stored: bytes (two digits each; if left out), fit (as many "
                   "bytes as it takes, the lowest first), words (the same in pairs), long (four)")
      ->check(CLI::IsMember({"bytes", "fit", "words", "long"}));
  unhex->callback([=, &result] { result = Unhex(*texts, *mode); });

  auto file = std::make_shared<std::string>();
  CLI::App* header =
      app.add_subcommand("header", "Print the headers of a bitmap, a wave file or a program.");
  header->add_option("FILE", *file, "The file")->required();
  header->callback([=, &result] { result = Header(*file); });
}
