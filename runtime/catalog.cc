#include "runtime/catalog.h"

#include <fmt/args.h>
#include <fmt/format.h>

#include <algorithm>
#include <boost/locale/encoding_utf.hpp>
#include <string_view>

namespace tb::runtime {
namespace {

using Argument = resource_core::BaseMsgID::Argument;
namespace conv = boost::locale::conv;

std::string utf8FromLatin1(const std::string& text) {
  std::u32string points;
  for (const char byte : text) points.push_back(static_cast<unsigned char>(byte));
  return conv::utf_to_utf<char>(points);
}

// A text for people: what is no valid text still shows as well as it can.
std::string readable(const std::string& text) try {
  return conv::utf_to_utf<char>(text, conv::stop);
} catch (const conv::conversion_error&) {
  return utf8FromLatin1(text);
}
std::string readable(const std::u16string& text) {
  return conv::utf_to_utf<char>(text, conv::skip);
}

void store(fmt::dynamic_format_arg_store<fmt::format_context>& arguments,
           const Argument& argument) {
  if (const auto* number = std::get_if<std::int64_t>(&argument))
    arguments.push_back(*number);
  else if (const auto* large = std::get_if<std::uint64_t>(&argument))
    arguments.push_back(*large);
  else if (const auto* text = std::get_if<std::string>(&argument))
    arguments.push_back(readable(*text));
  else
    arguments.push_back(readable(std::get<std::u16string>(argument)));
}

// The identifier and the arguments in a row.
std::string plainText(const resource_core::BaseMsgID& message) {
  std::string text = message.identifier();
  for (const char* separator = ": "; const Argument& argument : message.arguments()) {
    fmt::dynamic_format_arg_store<fmt::format_context> one;
    store(one, argument);
    text += separator + fmt::vformat("{}", one);
    separator = ", ";
  }
  return text;
}

std::size_t argumentCount(const CatalogEntry& entry) noexcept {
  const std::string_view list = entry.arguments;
  return list.empty() ? 0 : 1 + static_cast<std::size_t>(std::ranges::count(list, ';'));
}

std::string fill(const resource_core::BaseMsgID& message, bool warning) {
  const CatalogEntry* entry = findCatalogEntry(message.identifier(), warning);
  if (entry == nullptr || argumentCount(*entry) != message.arguments().size())
    return plainText(message);
  fmt::dynamic_format_arg_store<fmt::format_context> arguments;
  for (const Argument& argument : message.arguments()) store(arguments, argument);
  return fmt::vformat(entry->text, arguments);
}

}  // namespace

const CatalogEntry* findCatalogEntry(std::string_view identifier, bool warning) noexcept {
  const CatalogEntry* other = nullptr;
  for (const CatalogEntry& entry : catalog()) {
    if (identifier != entry.identifier) continue;
    if (entry.warning == warning) return &entry;
    other = &entry;
  }
  return other;
}

std::string messageText(const resource_core::BaseMsgID& message) { return fill(message, false); }

std::string warningText(const resource_core::BaseMsgID& message) { return fill(message, true); }

}  // namespace tb::runtime
