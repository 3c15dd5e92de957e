#pragma once

// One mapping of a table segment: POSIX shared memory opened by name (writer or reader) or
// anonymous process memory. It knows files, descriptors and mappings, nothing of records.
//
// The writer holds an exclusive flock on the segment for its whole life: the kernel drops it when
// the writer exits or is killed, so a segment whose lock can be taken has no live writer. Forked
// children inherit neither the writer's descriptor (closed at fork) nor its mapping (which would
// hold the file, and so the lock), so that they never keep a dead parent's lock alive.

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace Kelp {

class Segment {
 public:
  enum class Access { writer, reader, process };

  Segment() = default;
  Segment(Segment&& other) noexcept;
  Segment& operator=(Segment&& other) noexcept;
  Segment(Segment const&) = delete;
  Segment& operator=(Segment const&) = delete;
  ~Segment();

  // Takes the name for the one writer: a new empty file created with `mode`, or a fresh one in
  // place of a stale segment of ours left by a dead writer (*replacedStale is then true). Throws
  // OpenException when a live writer owns the name, or the name is another user's or not a plain
  // segment.
  static Segment claim(std::string const& table, bool* replacedStale, mode_t mode = 0600);
  // Opens an existing segment for reading; throws OpenException when there is none.
  static Segment open(std::string const& table);
  // Process memory with no name.
  static Segment anonymous(std::string const& table);

  // Writer and process memory: makes the segment `bytes` long (never shorter) and maps it all.
  void resize(std::size_t bytes);
  // Reader: maps the first `bytes` of the file (after the writer grew it).
  void map(std::size_t bytes);
  // Reader: maps the reader registry page writable, if the file was opened for writing.
  void mapRegistry();
  // Writer: removes the name (the memory lives on while mapped).
  void unlinkName();
  void close();

  std::byte* base() const { return base_; }
  std::size_t bytes() const { return bytes_; }
  std::byte* registry() const { return registry_; }
  std::size_t fileBytes() const;
  ino_t inode() const;
  bool isOpen() const { return base_ != nullptr || fd_ >= 0; }
  std::string const& table() const { return table_; }
  std::string const& path() const { return path_; }
  Access access() const { return access_; }

 private:
  Segment(std::string table, int fd, Access access);
  void unmap();

  std::string table_;
  std::string path_;
  int fd_ = -1;
  bool writable_ = false;
  Access access_ = Access::process;
  pid_t ownerPid_ = 0;
  std::byte* base_ = nullptr;
  std::size_t bytes_ = 0;
  std::byte* registry_ = nullptr;
};

inline constexpr std::size_t maxTableNameBytes = 200;
// Table names are portable file names: letters, digits, '.', '_' and '-', not starting with '.',
// without "..", at most maxTableNameBytes long.
bool validTableName(std::string_view name);
// "/" followed by the table name; throws OpenException for a name that is not valid.
std::string segmentPath(std::string const& table);

// Removes the name of every segment this process created and still holds. Safe to call from a
// signal handler: a process stopped by a signal leaves no names behind.
void unlinkCreatedSegments();

}  // namespace Kelp
