// The same message made and written by GMime.
#include <benchmark/benchmark.h>
#include <gmime/gmime.h>

#include "bench/messages.h"

namespace mailtree::bench {
namespace {

GMimeObject* textPart(const char* subtype, const std::string& utf8) {
  GMimeTextPart* part = g_mime_text_part_new_with_subtype(subtype);
  g_mime_text_part_set_text(part, utf8.c_str());
  g_mime_part_set_content_encoding(GMIME_PART(part), GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
  return GMIME_OBJECT(part);
}

GMimeObject* attachment(const Draft::File& file) {
  GMimePart* part = g_mime_part_new_with_type("application", "octet-stream");
  g_mime_part_set_filename(part, file.name);
  g_mime_object_set_disposition(GMIME_OBJECT(part), "attachment");
  GMimeStream* bytes = g_mime_stream_mem_new_with_buffer(file.bytes.data(), file.bytes.size());
  GMimeDataWrapper* content = g_mime_data_wrapper_new_with_stream(bytes, GMIME_CONTENT_ENCODING_DEFAULT);
  g_object_unref(bytes);
  g_mime_part_set_content(part, content);
  g_object_unref(content);
  g_mime_part_set_content_encoding(part, GMIME_CONTENT_ENCODING_BASE64);
  return GMIME_OBJECT(part);
}

void add(GMimeMultipart* parent, GMimeObject* part) {
  g_mime_multipart_add(parent, part);
  g_object_unref(part);
}

GMimeMessage* compose(const Draft& draft) {
  GMimeMessage* message = g_mime_message_new(TRUE);
  g_mime_message_set_subject(message, "Grüße aus dem Büro", "utf-8");
  g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_FROM, "Jörg Müller", "joerg@example.org");
  g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_TO, nullptr, "ann@example.net");
  g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_TO, "Bob", "bob@example.net");
  GMimeMultipart* alternative = g_mime_multipart_new_with_subtype("alternative");
  add(alternative, textPart("plain", draft.text));
  add(alternative, textPart("html", draft.html));
  GMimeMultipart* mixed = g_mime_multipart_new_with_subtype("mixed");
  add(mixed, GMIME_OBJECT(alternative));
  for (const Draft::File& file : draft.files) add(mixed, attachment(file));
  g_mime_message_set_mime_part(message, GMIME_OBJECT(mixed));
  g_object_unref(mixed);
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

BENCHMARK(composeAndWrite)->Name("compose/text_html_5MB/gmime");

}  // namespace
}  // namespace mailtree::bench
