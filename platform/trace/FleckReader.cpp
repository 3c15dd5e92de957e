// Fleck decoding: header checks, the call-site table, then every block in claim order, each
// thread's records in turn, merged by time stamp.

#include "platform/trace/FleckReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <queue>

#include "platform/trace/Clock.h"
#include "platform/trace/FleckFormat.h"
#include "platform/trace/Format.h"
#include "platform/trace/Record.h"

namespace Fleck {

namespace {

template <class T>
T load(std::string_view bytes, std::size_t offset) {
  T v;
  std::memcpy(&v, bytes.data() + offset, sizeof v);
  return v;
}

struct SiteInfo {
  std::vector<ArgType> types;
  std::string facility;
  std::string file;
  std::string format;
  int level;
  int line;
};

struct BlockInfo {
  std::size_t offset;
  BlockHeader header;
};

// A decoded record waiting for the merge: its thread's order is kept by `ticks` never falling
// within one thread.
struct Pending {
  std::uint64_t ticks;
  Message message;
};

std::optional<std::string> headerError(std::string_view bytes, FileHeader const& h) {
  if (bytes.size() < headerBytes || std::memcmp(h.magic, fileMagic, sizeof fileMagic) != 0) {
    return "not a Fleck buffer";
  }
  if (h.version != fileVersion) {
    return "unsupported Fleck version " + std::to_string(h.version);
  }
  bool const sane =
      h.fileBytes == bytes.size() && h.siteOffset == headerBytes && h.siteBytes % 8 == 0 &&
      h.siteBytes < h.fileBytes && h.ringOffset == h.siteOffset + h.siteBytes &&
      h.blockBytes == blockBytes && h.blockCount > 0 && h.blockCount <= h.fileBytes / blockBytes &&
      h.ringOffset + h.blockCount * blockBytes <= h.fileBytes && h.clockKind <= 1 && h.tickHz > 0;
  if (!sane) return "not a Fleck buffer (inconsistent header)";
  return std::nullopt;
}

bool validType(std::uint8_t t) { return t >= 1 && t <= 5; }

// Call sites, indexed by number - 1. A descriptor that does not hold together ends the table.
std::vector<std::optional<SiteInfo>> readSites(std::string_view bytes, FileHeader const& h) {
  std::vector<std::optional<SiteInfo>> sites;
  std::size_t offset = 0;
  while (offset + sizeof(SiteHeader) <= h.siteBytes) {
    auto const s = load<SiteHeader>(bytes, h.siteOffset + offset);
    std::size_t const need =
        sizeof(SiteHeader) + s.argCount + s.facilityBytes + s.fileBytes + s.formatBytes;
    if (s.commit != siteMagic || s.bytes != align8(need) || offset + s.bytes > h.siteBytes ||
        s.id != sites.size() + 1) {
      break;
    }
    char const* p = bytes.data() + h.siteOffset + offset + sizeof(SiteHeader);
    SiteInfo info;
    for (std::size_t i = 0; i < s.argCount; ++i) info.types.push_back(ArgType(p[i]));
    p += s.argCount;
    info.facility.assign(p, s.facilityBytes);
    p += s.facilityBytes;
    info.file.assign(p, s.fileBytes);
    p += s.fileBytes;
    info.format.assign(p, s.formatBytes);
    info.level = s.level;
    info.line = static_cast<int>(s.line);
    bool const ok =
        std::all_of(info.types.begin(), info.types.end(),
                    [](ArgType t) { return validType(static_cast<std::uint8_t>(t)); }) &&
        Trace::placeholderCount(info.format) == static_cast<int>(s.argCount);
    sites.push_back(ok ? std::optional<SiteInfo>(std::move(info)) : std::nullopt);
    offset += s.bytes;
  }
  return sites;
}

struct Value {
  ArgType type;
  std::uint64_t raw;
  std::string_view text;
};

void appendValue(std::string& out, void const* p) {
  auto const& v = *static_cast<Value const*>(p);
  switch (v.type) {
    case ArgType::int64:
      Trace::appendNumber(out, static_cast<std::int64_t>(v.raw));
      break;
    case ArgType::uint64:
      Trace::appendNumber(out, v.raw);
      break;
    case ArgType::boolean:
      Trace::appendBool(out, v.raw != 0);
      break;
    case ArgType::float64:
      Trace::appendDouble(out, std::bit_cast<double>(v.raw));
      break;
    case ArgType::text:
      out += v.text;
      break;
  }
}

struct RecordText {
  std::string text;
  std::vector<std::string> args;
};

// The message of one record, if its arguments decode exactly against the site's types.
std::optional<RecordText> recordText(std::string_view payload, SiteInfo const& site) {
  std::vector<Value> values;
  std::size_t at = 0;
  for (ArgType t : site.types) {
    if (t == ArgType::text) {
      if (payload.size() - at < 4) return std::nullopt;
      auto const n = load<std::uint32_t>(payload, at);
      if (payload.size() - at - 4 < n) return std::nullopt;
      values.push_back({t, 0, payload.substr(at + 4, n)});
      at += 4 + n;
      continue;
    }
    if (payload.size() - at < 8) return std::nullopt;
    auto const raw = load<std::uint64_t>(payload, at);
    if (t == ArgType::boolean && raw > 1) return std::nullopt;
    values.push_back({t, raw, {}});
    at += 8;
  }
  std::string_view const padding = payload.substr(at);
  if (padding.size() >= 8 || padding.find_first_not_of('\0') != std::string_view::npos) {
    return std::nullopt;
  }
  RecordText out;
  std::vector<Trace::ArgText> args;
  for (auto const& v : values) {
    args.push_back({&v, appendValue});
    appendValue(out.args.emplace_back(), &v);
  }
  out.text = Trace::formatText(site.format, args.data(), args.size());
  return out;
}

class Decoder {
 public:
  Decoder(std::string_view bytes, FileHeader const& h, Decoded& out)
      : bytes_(bytes), h_(h), out_(out), sites_(readSites(bytes, h)) {}

  void run() {
    std::map<std::uint32_t, std::vector<BlockInfo>> threads;
    BlockHeader newest{};
    for (std::size_t i = 0; i < h_.blockCount; ++i) {
      std::size_t const offset = h_.ringOffset + i * blockBytes;
      auto const b = load<BlockHeader>(bytes_, offset);
      if (b.claim == 0 || (b.claim - 1) % h_.blockCount != i) continue;
      threads[b.thread].push_back({offset, b});
      if (b.claim > newest.claim) newest = b;
    }
    tickHz_ = calibratedHz(newest);
    std::vector<std::vector<Pending>> streams;
    for (auto& [_, blocks] : threads) {
      std::sort(blocks.begin(), blocks.end(), [](BlockInfo const& a, BlockInfo const& b) {
        return a.header.claim < b.header.claim;
      });
      auto& stream = streams.emplace_back();
      for (auto const& block : blocks) readBlock(block, stream);
    }
    merge(streams);
  }

 private:
  // The rate stored at creation, measured over a millisecond, unless the clocks have run
  // long enough since for a better one.
  double calibratedHz(BlockHeader const& newest) const {
    if (h_.clockKind == 0) return 1e9;
    double const ns = double(newest.monotonicNs) - double(h_.anchorMonotonicNs);
    double const ticks = double(newest.ticks) - double(h_.anchorTicks);
    return ns >= 1e9 && ticks > 0 ? ticks * 1e9 / ns : double(h_.tickHz);
  }

  // The clock fields come from the file: damaged ones give a meaningless time, never an
  // overflow. The offset is clamped to what a signed 64-bit count holds (a NaN counts as none),
  // and the sums are taken modulo 2^64.
  std::int64_t wallNs(BlockHeader const& b, std::uint64_t ticks) const {
    double const sinceBlock = (double(ticks) - double(b.ticks)) * 1e9 / tickHz_;
    constexpr double limit = 9.2e18;
    std::int64_t const offset =
        sinceBlock == sinceBlock ? static_cast<std::int64_t>(std::clamp(sinceBlock, -limit, limit))
                                 : 0;
    return static_cast<std::int64_t>(std::uint64_t(b.monotonicNs) + std::uint64_t(offset) -
                                     std::uint64_t(h_.anchorMonotonicNs) +
                                     std::uint64_t(h_.anchorWallNs));
  }

  void readBlock(BlockInfo const& block, std::vector<Pending>& stream) {
    auto const tag = static_cast<std::uint32_t>(block.header.claim);
    std::size_t at = blockHeaderBytes;
    while (at + recordHeaderBytes <= blockBytes) {
      auto const r = load<RecordHeader>(bytes_, block.offset + at);
      auto const length = static_cast<std::uint32_t>(r.commit);
      if (static_cast<std::uint32_t>(r.commit >> 32) != tag || length < recordHeaderBytes ||
          length % 8 != 0 || length > blockBytes - at) {
        break;  // the end of the block's records, or a torn one
      }
      auto const payload =
          bytes_.substr(block.offset + at + recordHeaderBytes, length - recordHeaderBytes);
      auto const* site = r.site >= 1 && r.site <= sites_.size() && sites_[r.site - 1]
                             ? &*sites_[r.site - 1]
                             : nullptr;
      auto text = site != nullptr ? recordText(payload, *site) : std::nullopt;
      if (text) {
        stream.push_back(
            {r.ticks, Message{wallNs(block.header, r.ticks), block.header.thread, site->facility,
                              site->level, site->file, site->line, std::move(text->text),
                              std::move(text->args), site->format}});
      } else {
        ++out_.skippedRecords;
      }
      at += length;
    }
  }

  void merge(std::vector<std::vector<Pending>>& streams) {
    using Head = std::pair<std::uint64_t, std::pair<std::size_t, std::size_t>>;
    std::priority_queue<Head, std::vector<Head>, std::greater<>> heads;
    for (std::size_t s = 0; s < streams.size(); ++s) {
      if (!streams[s].empty()) heads.push({streams[s][0].ticks, {s, 0}});
    }
    while (!heads.empty()) {
      auto const [s, i] = heads.top().second;
      heads.pop();
      out_.messages.push_back(std::move(streams[s][i].message));
      if (i + 1 < streams[s].size()) heads.push({streams[s][i + 1].ticks, {s, i + 1}});
    }
  }

  std::string_view bytes_;
  FileHeader const& h_;
  Decoded& out_;
  std::vector<std::optional<SiteInfo>> sites_;
  double tickHz_ = 1e9;
};

}  // namespace

bool decode(std::string_view bytes, Decoded& out, std::string& error) {
  FileHeader h{};
  if (bytes.size() >= sizeof h) std::memcpy(&h, bytes.data(), sizeof h);
  if (auto e = headerError(bytes, h)) {
    error = *e;
    return false;
  }
  out.droppedRecords = h.droppedRecords;
  out.pid = h.pid;
  Decoder(bytes, h, out).run();
  return true;
}

bool decodeFile(std::string const& path, Decoded& out, std::string& error) {
  int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    error = std::strerror(errno);
    return false;
  }
  std::string bytes;
  struct stat st;
  if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) bytes.reserve(std::size_t(st.st_size));
  char buf[65536];
  ssize_t n;
  while ((n = ::read(fd, buf, sizeof buf)) > 0) bytes.append(buf, std::size_t(n));
  int const readErrno = errno;
  ::close(fd);
  if (n < 0) {
    error = std::strerror(readErrno);
    return false;
  }
  return decode(bytes, out, error);
}

std::string messageLine(Message const& m) {
  return Trace::lineText({m.facility, m.level, m.text, m.file, m.line, m.wallNs}, 9);
}

}  // namespace Fleck
