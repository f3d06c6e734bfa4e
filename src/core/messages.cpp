// The core library's numbered message catalogue.  Each message has a printf
// format and the number of arguments it consumes; a caller whose argument
// count disagrees gets the bare message number rather than a misread
// va_list.
#include "qor/core.h"

#include <cstdarg>
#include <cstdio>

namespace {

struct Message {
  int number;
  int argc;
  const char *format;
};

// Vector math error reports: a header naming the function, then one line per
// value, each with the element index.
constexpr Message kCatalogue[] = {
    {748, 2, "%s: bad argument (index %d)"},
    {749, 1, "%s: the operation failed"},
    {750, 1, "%s: argument outside the function's domain"},
    {751, 1, "%s: singularity, the result is infinite"},
    {752, 1, "%s: the result overflows"},
    {753, 1, "%s: the result underflows"},
    {754, 1, "%s: unknown error"},
    {755, 2, "  element %d: argument %.17g"},
    {756, 2, "  element %d: result %.17g"},
    {757, 2, "  element %d: argument %.17g"},
    {758, 2, "  element %d: first result %.17g"},
    {759, 2, "  element %d: second result %.17g"},
    {760, 2, "  element %d: first argument %.17g"},
    {761, 2, "  element %d: second argument %.17g"},
    {762, 2, "  element %d: result %.17g"},
    {763, 2, "  element %d: first argument %.17g"},
    {764, 2, "  element %d: second argument %.17g"},
    {765, 2, "  element %d: first result %.17g"},
    {766, 2, "  element %d: second result %.17g"},
    {773, 0, "cannot allocate the per-thread vector math state"},
};

const Message *find(int number) {
  for (const Message &m : kCatalogue)
    if (m.number == number) return &m;
  return nullptr;
}

}  // namespace

extern "C" void qor_serv_print(int level, int msg_no, int argc, ...) {
  char line[512];
  const char *kind = level >= 1 ? "error" : "note";
  int used = std::snprintf(line, sizeof line, "qor %s %d: ", kind, msg_no);
  if (used < 0) return;
  const Message *m = find(msg_no);
  if (m && m->argc == argc) {
    va_list ap;
    va_start(ap, argc);
    std::vsnprintf(line + used, sizeof line - static_cast<size_t>(used), m->format, ap);
    va_end(ap);
  } else {
    std::snprintf(line + used, sizeof line - static_cast<size_t>(used),
                  m ? "(message called with %d arguments)" : "(unknown message, %d arguments)",
                  argc);
  }
  // One write per line so that concurrent reports do not interleave mid-line.
  std::fprintf(stderr, "%s\n", line);
}
