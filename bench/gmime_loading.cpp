#include <gmime/gmime.h>

#include "bench/gmime_stream.h"
#include "bench/loading.h"

namespace mailtree::bench {
namespace {

std::size_t lengthOf(const char* text) { return text ? std::string_view(text).size() : 0; }

std::size_t readAddresses(GMimeMessage* message, GMimeAddressType type) {
  std::size_t sum = 0;
  InternetAddressList* list = g_mime_message_get_addresses(message, type);
  for (int i = 0; list && i < internet_address_list_length(list); ++i) {
    InternetAddress* address = internet_address_list_get_address(list, i);
    sum += lengthOf(internet_address_get_name(address));
    if (INTERNET_ADDRESS_IS_MAILBOX(address))
      sum += lengthOf(internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(address)));
  }
  return sum;
}

std::size_t readSummary(GMimeMessage* message) {
  std::size_t sum = lengthOf(g_mime_message_get_subject(message)) +
                    readAddresses(message, GMIME_ADDRESS_TYPE_FROM) +
                    readAddresses(message, GMIME_ADDRESS_TYPE_TO);
  if (GDateTime* date = g_mime_message_get_date(message))
    sum += static_cast<std::size_t>(g_date_time_get_year(date));
  return sum;
}

void readLeaf(GMimeObject*, GMimeObject* part, gpointer sum) {
  auto& total = *static_cast<std::size_t*>(sum);
  if (GMIME_IS_TEXT_PART(part)) {
    char* text = g_mime_text_part_get_text(GMIME_TEXT_PART(part));
    total += lengthOf(text);
    g_free(text);
  } else if (GMIME_IS_PART(part)) {
    GMimeStream* memory = g_mime_stream_mem_new();
    g_mime_data_wrapper_write_to_stream(g_mime_part_get_content(GMIME_PART(part)), memory);
    total += static_cast<std::size_t>(g_mime_stream_length(memory));
    g_object_unref(memory);
  }
}

}  // namespace

std::size_t loadWithGmime(const std::string& bytes) {
  g_mime_init();
  GMimeStream* stream = lend(bytes);
  GMimeParser* parser = g_mime_parser_new_with_stream(stream);
  g_object_unref(stream);
  GMimeMessage* message = g_mime_parser_construct_message(parser, nullptr);
  g_object_unref(parser);
  std::size_t sum = 0;
  if (message) {
    g_mime_message_foreach(message, readLeaf, &sum);
    sum += readSummary(message);
    g_object_unref(message);
  }
  return sum;
}

}  // namespace mailtree::bench
