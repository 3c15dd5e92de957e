// Unified diff: a longest common subsequence of the lines (after the common head and tail are
// set aside), grouped into hunks with three lines of context.

#include "tools/noxsim/Diff.h"

#include <algorithm>
#include <cstdint>

#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

constexpr std::size_t contextLines = 3;
// Beyond this many cells the middle part is shown as removed and added whole.
constexpr std::size_t maxLcsCells = std::size_t(1) << 22;

struct Edit {
  char op;  // ' ', '-' or '+'
  std::size_t from;
  std::size_t to;
};

void diffMiddle(std::vector<std::string> const& a, std::vector<std::string> const& b,
                std::size_t a0, std::size_t a1, std::size_t b0, std::size_t b1,
                std::vector<Edit>& edits) {
  std::size_t const n = a1 - a0;
  std::size_t const m = b1 - b0;
  if (n * m > maxLcsCells) {
    for (std::size_t i = a0; i < a1; ++i) edits.push_back({'-', i, b0});
    for (std::size_t j = b0; j < b1; ++j) edits.push_back({'+', a1, j});
    return;
  }
  // lcs[i][j]: longest common subsequence of a[a0+i..a1) and b[b0+j..b1).
  std::vector<uint32_t> lcs((n + 1) * (m + 1), 0);
  auto at = [&](std::size_t i, std::size_t j) -> uint32_t& { return lcs[i * (m + 1) + j]; };
  for (std::size_t i = n; i-- > 0;) {
    for (std::size_t j = m; j-- > 0;) {
      at(i, j) =
          a[a0 + i] == b[b0 + j] ? at(i + 1, j + 1) + 1 : std::max(at(i + 1, j), at(i, j + 1));
    }
  }
  std::size_t i = 0, j = 0;
  while (i < n || j < m) {
    if (i < n && j < m && a[a0 + i] == b[b0 + j]) {
      edits.push_back({' ', a0 + i++, b0 + j++});
    } else if (i < n && (j == m || at(i + 1, j) >= at(i, j + 1))) {
      edits.push_back({'-', a0 + i++, b0 + j});
    } else {
      edits.push_back({'+', a0 + i, b0 + j++});
    }
  }
}

std::string range(std::size_t start, std::size_t count) {
  // A hunk side with no lines names the line before it.
  std::size_t const first = count == 0 ? start : start + 1;
  return count == 1 ? cat(first) : cat(first, ",", count);
}

}  // namespace

std::string unifiedDiff(std::vector<std::string> const& a, std::vector<std::string> const& b,
                        std::string_view fromName, std::string_view toName) {
  if (a == b) return {};
  std::size_t head = 0;
  while (head < a.size() && head < b.size() && a[head] == b[head]) ++head;
  std::size_t tail = 0;
  while (tail < a.size() - head && tail < b.size() - head &&
         a[a.size() - 1 - tail] == b[b.size() - 1 - tail]) {
    ++tail;
  }
  std::vector<Edit> edits;
  for (std::size_t i = 0; i < head; ++i) edits.push_back({' ', i, i});
  diffMiddle(a, b, head, a.size() - tail, head, b.size() - tail, edits);
  for (std::size_t k = tail; k > 0; --k) edits.push_back({' ', a.size() - k, b.size() - k});

  std::string text = cat("--- ", fromName, "\n+++ ", toName, "\n");
  std::size_t e = 0;
  while (e < edits.size()) {
    // Find the next change, and the end of its hunk: a change followed by more than twice the
    // context of unchanged lines ends it.
    while (e < edits.size() && edits[e].op == ' ') ++e;
    if (e == edits.size()) break;
    std::size_t const begin = e > contextLines ? e - contextLines : 0;
    std::size_t end = e;
    std::size_t unchanged = 0;
    for (std::size_t k = e; k < edits.size() && unchanged <= 2 * contextLines; ++k) {
      unchanged = edits[k].op == ' ' ? unchanged + 1 : 0;
      end = k + 1;
    }
    if (unchanged > contextLines) end -= unchanged - contextLines;
    std::size_t fromCount = 0, toCount = 0;
    for (std::size_t k = begin; k < end; ++k) {
      fromCount += edits[k].op != '+';
      toCount += edits[k].op != '-';
    }
    text += cat("@@ -", range(edits[begin].from, fromCount), " +", range(edits[begin].to, toCount),
                " @@\n");
    for (std::size_t k = begin; k < end; ++k) {
      std::string const& line = edits[k].op == '+' ? b[edits[k].to] : a[edits[k].from];
      text += edits[k].op;
      text += line;
      text += '\n';
    }
    e = end;
  }
  return text;
}

}  // namespace Noxsim
