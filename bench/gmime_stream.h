// bench/gmime_stream.h - lets GMime read bytes in memory without a copy.
#pragma once

#include <gmime/gmime.h>

#include <string>

namespace mailtree::bench {

/// A new stream over bytes that outlive it; owned by the caller.
inline GMimeStream* lend(const std::string& bytes) {
  GByteArray* array =
      g_byte_array_new_take(reinterpret_cast<guint8*>(const_cast<char*>(bytes.data())), bytes.size());
  GMimeStream* stream = g_mime_stream_mem_new_with_byte_array(array);
  g_mime_stream_mem_set_owner(GMIME_STREAM_MEM(stream), FALSE);
  const auto release = [](gpointer lent) { g_byte_array_free(static_cast<GByteArray*>(lent), FALSE); };
  g_object_set_data_full(G_OBJECT(stream), "lent", array, release);
  return stream;
}

}  // namespace mailtree::bench
