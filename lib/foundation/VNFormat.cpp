#include "foundation/VNFormat.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstring>

namespace {

// One conversion directive: "%" flags width precision length conversion.
struct Spec {
  std::string flags;
  std::string width;      // digits, or "*"
  std::string precision;  // ".digits", ".*" or empty
  std::string length;     // hh h l ll j z t L
  char conversion = 0;
};

// Reads a directive starting after '%'; returns the index past it, or
// npos when the format ends inside it.
size_t parseSpec(std::string_view f, size_t i, Spec& spec) {
  auto take = [&](auto pred, std::string& out) {
    while (i < f.size() && pred(f[i])) out += f[i++];
  };
  take([](char c) { return std::strchr("-+ #0'", c) != nullptr; }, spec.flags);
  take([](char c) { return c == '*' || (c >= '0' && c <= '9'); }, spec.width);
  if (i < f.size() && f[i] == '.') {
    spec.precision += f[i++];
    take([](char c) { return c == '*' || (c >= '0' && c <= '9'); }, spec.precision);
  }
  take([](char c) { return std::strchr("hljztLq", c) != nullptr; }, spec.length);
  if (i >= f.size()) return std::string_view::npos;
  spec.conversion = f[i];
  return i + 1;
}

class ArgReader {
 public:
  explicit ArgReader(std::span<const VNFormatArg> args) : args_(args) {}

  const VNFormatArg::Storage* next() { return index_ < args_.size() ? &args_[index_++].value() : nullptr; }

  long long nextSigned() {
    const auto* v = next();
    if (!v) return 0;
    if (auto* s = std::get_if<std::int64_t>(v)) return *s;
    if (auto* u = std::get_if<std::uint64_t>(v)) return static_cast<long long>(*u);
    if (auto* d = std::get_if<double>(v)) return static_cast<long long>(*d);
    return 0;
  }
  double nextDouble() {
    const auto* v = next();
    if (!v) return 0;
    if (auto* d = std::get_if<double>(v)) return *d;
    if (auto* s = std::get_if<std::int64_t>(v)) return static_cast<double>(*s);
    if (auto* u = std::get_if<std::uint64_t>(v)) return static_cast<double>(*u);
    return 0;
  }
  const char* nextCString() {
    const auto* v = next();
    if (!v) return nullptr;
    if (auto* s = std::get_if<const char*>(v)) return *s;
    if (auto* o = std::get_if<VNFormatArg::Object>(v)) return o->text.c_str();
    return nullptr;
  }
  const void* nextPointer() {
    const auto* v = next();
    if (!v) return nullptr;
    if (auto* p = std::get_if<const void*>(v)) return *p;
    if (auto* s = std::get_if<const char*>(v)) return *s;
    if (auto* u = std::get_if<std::uint64_t>(v)) return reinterpret_cast<const void*>(*u);
    return nullptr;
  }
  std::string nextDescription() {
    const auto* v = next();
    if (!v) return "(null)";
    if (auto* o = std::get_if<VNFormatArg::Object>(v)) return o->text;
    if (auto* s = std::get_if<const char*>(v)) return *s ? *s : "(null)";
    if (auto* i = std::get_if<std::int64_t>(v)) return std::to_string(*i);
    if (auto* u = std::get_if<std::uint64_t>(v)) return std::to_string(*u);
    if (auto* d = std::get_if<double>(v)) return VNFormat("%g", *d);
    return "(null)";
  }

 private:
  std::span<const VNFormatArg> args_;
  size_t index_ = 0;
};

template <class... T>
void appendPrintf(std::string& out, const std::string& spec, T... values) {
  int n = std::snprintf(nullptr, 0, spec.c_str(), values...);
  if (n <= 0) return;
  size_t at = out.size();
  out.resize(at + static_cast<size_t>(n) + 1);
  std::snprintf(out.data() + at, static_cast<size_t>(n) + 1, spec.c_str(), values...);
  out.resize(at + static_cast<size_t>(n));
}

// Narrows an integer the way the length modifier says, then widens it again
// so that one snprintf call with "ll" prints it.
long long narrowSigned(long long v, const std::string& length) {
  if (length == "hh") return static_cast<signed char>(v);
  if (length == "h") return static_cast<short>(v);
  if (length.empty()) return static_cast<int>(v);
  return v;
}
unsigned long long narrowUnsigned(long long v, const std::string& length) {
  if (length == "hh") return static_cast<unsigned char>(v);
  if (length == "h") return static_cast<unsigned short>(v);
  if (length.empty()) return static_cast<unsigned>(v);
  return static_cast<unsigned long long>(v);
}

void appendConversion(std::string& out, Spec spec, ArgReader& args) {
  // '*' width and precision take int arguments first, as in printf.
  if (spec.width == "*") spec.width = std::to_string(static_cast<int>(args.nextSigned()));
  // A negative '*' precision counts as none, as in printf.
  if (spec.precision == ".*") {
    int precision = static_cast<int>(args.nextSigned());
    spec.precision = precision < 0 ? "" : fmt::format(".{}", precision);
  }
  std::string head = "%" + spec.flags + spec.width + spec.precision;
  switch (spec.conversion) {
    case 'd':
    case 'i':
      appendPrintf(out, head + "lld", narrowSigned(args.nextSigned(), spec.length));
      return;
    case 'u':
    case 'x':
    case 'X':
    case 'o':
      appendPrintf(out, head + "ll" + spec.conversion, narrowUnsigned(args.nextSigned(), spec.length));
      return;
    case 'c':
      appendPrintf(out, head + "c", static_cast<int>(args.nextSigned()));
      return;
    case 'f': case 'F': case 'e': case 'E': case 'g': case 'G': case 'a': case 'A':
      appendPrintf(out, head + spec.conversion, args.nextDouble());
      return;
    case 's': {
      const char* s = args.nextCString();
      appendPrintf(out, head + "s", s ? s : "(null)");
      return;
    }
    case 'p':
      appendPrintf(out, head + "p", args.nextPointer());
      return;
    case '@': {
      std::string text = args.nextDescription();
      appendPrintf(out, head + "s", text.c_str());
      return;
    }
    default:
      out += head + spec.length + spec.conversion;
  }
}

}  // namespace

std::string VNFormatArgs(std::string_view format, std::span<const VNFormatArg> args) {
  std::string out;
  out.reserve(format.size() + 16 * args.size());
  ArgReader reader(args);
  size_t i = 0;
  while (i < format.size()) {
    size_t percent = format.find('%', i);
    if (percent == std::string_view::npos) {
      out.append(format.substr(i));
      break;
    }
    out.append(format.substr(i, percent - i));
    if (percent + 1 < format.size() && format[percent + 1] == '%') {
      out += '%';
      i = percent + 2;
      continue;
    }
    Spec spec;
    size_t end = parseSpec(format, percent + 1, spec);
    if (end == std::string_view::npos) {
      out.append(format.substr(percent));
      break;
    }
    appendConversion(out, spec, reader);
    i = end;
  }
  return out;
}
