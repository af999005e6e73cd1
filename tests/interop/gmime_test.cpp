// What GMime sees in messages that were composed here.
#include <gtest/gtest.h>

#include "tests/interop/messages.h"

#ifndef MAILTREE_HAS_GMIME

TEST(Interop, gmime_sees_what_was_composed) { GTEST_SKIP() << "built without GMime"; }

#else
#include <gmime/gmime.h>

#include <memory>

namespace mailtree::interop {
namespace {

using nlohmann::json;

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
};
template <class Type>
using Ref = std::unique_ptr<Type, Unref>;

json textOrNull(const char* text) { return text ? json(text) : json(); }

std::string bytesOf(GMimeStream* memory) {
  const GByteArray* const array = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(memory));
  return {reinterpret_cast<const char*>(array->data), array->len};
}

std::string decoded(GMimePart* part) {
  const Ref<GMimeStream> memory(g_mime_stream_mem_new());
  if (GMimeDataWrapper* content = g_mime_part_get_content(part))
    g_mime_data_wrapper_write_to_stream(content, memory.get());
  return bytesOf(memory.get());
}

std::string withoutCr(std::string text) {
  std::erase(text, '\r');
  return text;
}

const char* parameter(GMimeObject* part, const char* name) {
  return g_mime_object_get_content_type_parameter(part, name);
}

/// Decodes with GMime's own converter, which unlike its text of a part leaves the line ends alone.
json bodyOf(GMimeObject* part) {
  const std::string bytes = decoded(GMIME_PART(part));
  const char* const charset = parameter(part, "charset");
  const Ref<GMimeStream> memory(g_mime_stream_mem_new());
  const Ref<GMimeStream> filtered(g_mime_stream_filter_new(memory.get()));
  if (GMimeFilter* toUtf8 = charset ? g_mime_filter_charset_new(charset, "UTF-8") : nullptr) {
    const Ref<GMimeFilter> owned(toUtf8);
    g_mime_stream_filter_add(GMIME_STREAM_FILTER(filtered.get()), toUtf8);
  }
  g_mime_stream_write(filtered.get(), bytes.data(), bytes.size());
  g_mime_stream_flush(filtered.get());
  return bytesOf(memory.get());
}

json fileOf(GMimeObject* part) {
  const std::unique_ptr<char, decltype(&g_free)> type(
      g_mime_content_type_get_mime_type(g_mime_object_get_content_type(part)), g_free);
  const char* const id = g_mime_object_get_content_id(part);
  return {{"name", textOrNull(g_mime_part_get_filename(GMIME_PART(part)))},
          {"title", textOrNull(parameter(part, "name"))},
          {"type", type.get()},
          {"charset", textOrNull(parameter(part, "charset"))},
          {"id", id ? json("<" + std::string(id) + ">") : json()},
          {"hex", hexOf(decoded(GMIME_PART(part)))}};
}

std::string messageOf(GMimeObject* part) {
  const Ref<GMimeStream> memory(g_mime_stream_mem_new());
  g_mime_object_write_to_stream(GMIME_OBJECT(g_mime_message_part_get_message(GMIME_MESSAGE_PART(part))),
                                nullptr, memory.get());
  return withoutCr(bytesOf(memory.get()));
}

bool isBody(GMimeObject* part, const char* subtype) {
  return g_mime_content_type_is_type(g_mime_object_get_content_type(part), "text", subtype) &&
         !g_mime_object_get_disposition(part);
}

void seePart(GMimeObject*, GMimeObject* part, gpointer result) {
  json& seen = *static_cast<json*>(result);
  if (GMIME_IS_MULTIPART(part)) return;
  if (GMIME_IS_MESSAGE_PART(part)) {
    seen["messages"].push_back(messageOf(part));
    return;
  }
  const char* const body = isBody(part, "plain") ? "text" : isBody(part, "html") ? "html" : nullptr;
  if (!body || !seen[body].is_null()) {
    seen["files"].push_back(fileOf(part));
    return;
  }
  seen[body] = bodyOf(part);
  if (seen["charset"].is_null()) seen["charset"] = textOrNull(parameter(part, "charset"));
}

json nameOf(InternetAddressList* list) {
  return textOrNull(internet_address_get_name(internet_address_list_get_address(list, 0)));
}

/// A file name beyond ASCII is written twice on purpose, the second time for readers that
/// know nothing of RFC 2231.
void noteDefect(gint64 offset, GMimeParserWarning defect, const gchar* item, gpointer defects) {
  if (defect == GMIME_CRIT_CONFLICTING_PARAMETER) return;
  static_cast<json*>(defects)->push_back(std::to_string(offset) + ": " + (item ? item : ""));
}

json see(const std::string& bytes) {
  json defects = json::array();
  GMimeParserOptions* const options = g_mime_parser_options_new();
  g_mime_parser_options_set_warning_callback(options, noteDefect, &defects);
  const Ref<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size()));
  const Ref<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
  const Ref<GMimeMessage> message(g_mime_parser_construct_message(parser.get(), options));
  json seen = {{"subject", textOrNull(g_mime_message_get_subject(message.get()))},
               {"from", nameOf(g_mime_message_get_from(message.get()))},
               {"to", nameOf(g_mime_message_get_to(message.get()))},
               {"text", nullptr},
               {"html", nullptr},
               {"charset", nullptr},
               {"files", json::array()},
               {"messages", json::array()}};
  g_mime_message_foreach(message.get(), seePart, &seen);
  g_mime_parser_options_free(options);
  seen["defects"] = defects;
  return seen;
}

TEST(Interop, gmime_sees_what_was_composed) {
  g_mime_init();
  for (const Composed& message : composedMessages()) expectSeen(message, see(message.bytes));
  g_mime_shutdown();
}

}  // namespace
}  // namespace mailtree::interop

#endif
