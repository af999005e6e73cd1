// Composing and writing the same message with GMime.
#include <benchmark/benchmark.h>
#include <gmime/gmime.h>

#include <string_view>

#include "bench/gmime_stream.h"
#include "bench/messages.h"

namespace mailtree::bench {
namespace {

GMimeObject* textPart(const char* subtype, const std::string& utf8) {
  GMimeTextPart* part = g_mime_text_part_new_with_subtype(subtype);
  g_mime_text_part_set_text(part, utf8.c_str());
  g_mime_part_set_content_encoding(GMIME_PART(part), GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
  return GMIME_OBJECT(part);
}

GMimePart* filePart(const Draft::File& file, const char* disposition) {
  const std::string_view type(file.type);
  const std::size_t slash = type.find('/');
  GMimePart* part =
      g_mime_part_new_with_type(std::string(type.substr(0, slash)).c_str(), file.type + slash + 1);
  g_mime_part_set_filename(part, file.name);
  g_mime_object_set_disposition(GMIME_OBJECT(part), disposition);
  GMimeStream* bytes = lend(file.bytes);
  GMimeDataWrapper* content = g_mime_data_wrapper_new_with_stream(bytes, GMIME_CONTENT_ENCODING_DEFAULT);
  g_object_unref(bytes);
  g_mime_part_set_content(part, content);
  g_object_unref(content);
  g_mime_part_set_content_encoding(part, GMIME_CONTENT_ENCODING_BASE64);
  return part;
}

GMimeObject* image(const Draft::File& file) {
  GMimePart* part = filePart(file, "inline");
  g_mime_part_set_content_id(part, file.name);
  return GMIME_OBJECT(part);
}

GMimeObject* attachment(const Draft::File& file) { return GMIME_OBJECT(filePart(file, "attachment")); }

void add(GMimeMultipart* parent, GMimeObject* part) {
  g_mime_multipart_add(parent, part);
  g_object_unref(part);
}

/// The HTML with its images.
GMimeObject* page(const Draft& draft) {
  GMimeMultipart* related = g_mime_multipart_new_with_subtype("related");
  add(related, textPart("html", draft.html));
  for (const Draft::File& file : draft.images) add(related, image(file));
  return GMIME_OBJECT(related);
}

GMimeObject* content(const Draft& draft) {
  GMimeMultipart* alternative = g_mime_multipart_new_with_subtype("alternative");
  add(alternative, textPart("plain", draft.text));
  add(alternative, page(draft));
  GMimeMultipart* mixed = g_mime_multipart_new_with_subtype("mixed");
  add(mixed, GMIME_OBJECT(alternative));
  for (const Draft::File& file : draft.files) add(mixed, attachment(file));
  return GMIME_OBJECT(mixed);
}

GMimeMessage* compose(const Draft& draft) {
  GMimeMessage* message = g_mime_message_new(TRUE);
  g_mime_message_set_subject(message, "Grüße aus dem Büro", "utf-8");
  g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_FROM, "Jörg Müller", "joerg@example.org");
  g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_TO, nullptr, "ann@example.net");
  g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_TO, "Bob", "bob@example.net");
  GDateTime* now = g_date_time_new_now_local();
  g_mime_message_set_date(message, now);
  g_date_time_unref(now);
  g_mime_message_set_message_id(message, "1@example.org");
  GMimeObject* root = content(draft);
  g_mime_message_set_mime_part(message, root);
  g_object_unref(root);
  return message;
}

void composeAndWrite(benchmark::State& state) {
  g_mime_init();
  for ([[maybe_unused]] const auto& _ : state) {
    GMimeMessage* message = compose(draft());
    GMimeStream* out = g_mime_stream_mem_new();
    g_mime_object_write_to_stream(GMIME_OBJECT(message), nullptr, out);
    benchmark::DoNotOptimize(g_mime_stream_length(out));
    g_object_unref(out);
    g_object_unref(message);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(draft().bytes()) * state.iterations());
}

BENCHMARK(composeAndWrite)->Name("compose/message_5MB/gmime");

}  // namespace
}  // namespace mailtree::bench
