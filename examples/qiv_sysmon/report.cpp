#include "report.h"

#include <qiv/time.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "figures.h"

namespace sysmon {
namespace {

constexpr int kMicrosecondsPerMillisecond = 1000;

// Adds to a text as std::printf() prints.
__attribute__((__format__(__printf__, 2, 3))) void Add(std::string* out, const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  *out += text;
}

// "2026-02-03T12:00:01.123Z"
std::string TimeText(QIV_TIME_T time) {
  QIV_TIME_EXP_T record = {};
  char text[64] = {};
  std::size_t length = 0;
  if (QIV_ExpTimeFromTimeGMT(time, &record) != QIV_OK) return {};
  QIV_StrFmtTime(text, &length, sizeof text, "%Y-%m-%dT%H:%M:%S", &record);
  std::string result = text;
  Add(&result, ".%03dZ", record.tm_usec / kMicrosecondsPerMillisecond);
  return result;
}

void AddPlainStorage(const char* subject, const Storage& storage, std::string* out) {
  Add(out, "%s total %llu\n", subject, storage.totalBytes);
  Add(out, "%s available %llu\n", subject, storage.availableBytes);
  Add(out, "%s used_percent %.1f\n", subject, storage.UsedFraction() * 100);
}

void AddPlainTraffic(const Traffic& traffic, std::string* out) {
  const InterfaceCounters& counters = traffic.counters;
  const std::string head = "net " + VisibleText(counters.adapter.name) + " ";
  const char* const subject = head.c_str();
  for (const std::string& address : counters.adapter.addresses) {
    Add(out, "%saddress %s\n", subject, address.c_str());
  }
  Add(out, "%sreceived_bytes %llu\n", subject, counters.receivedBytes);
  Add(out, "%sreceived_packets %llu\n", subject, counters.receivedPackets);
  Add(out, "%sreceived_bytes_per_second %.0f\n", subject, traffic.receivedPerSecond);
  Add(out, "%ssent_bytes %llu\n", subject, counters.sentBytes);
  Add(out, "%ssent_packets %llu\n", subject, counters.sentPackets);
  Add(out, "%ssent_bytes_per_second %.0f\n", subject, traffic.sentPerSecond);
}

void AddJsonStorage(const char* subject, const Storage& storage, std::string* out) {
  Add(out, "\"%s\":{\"total_bytes\":%llu,\"available_bytes\":%llu,\"used_percent\":%.1f},", subject,
      storage.totalBytes, storage.availableBytes, storage.UsedFraction() * 100);
}

void AddJsonTraffic(const Traffic& traffic, std::string* out) {
  const InterfaceCounters& counters = traffic.counters;
  *out += "{\"name\":" + JsonText(counters.adapter.name) + ",\"addresses\":[";
  const char* separator = "";
  for (const std::string& address : counters.adapter.addresses) {
    *out += separator + JsonText(address);
    separator = ",";
  }
  Add(out,
      "],\"received_bytes\":%llu,\"received_packets\":%llu,\"received_bytes_per_second\":%.0f,",
      counters.receivedBytes, counters.receivedPackets, traffic.receivedPerSecond);
  Add(out, "\"sent_bytes\":%llu,\"sent_packets\":%llu,\"sent_bytes_per_second\":%.0f}",
      counters.sentBytes, counters.sentPackets, traffic.sentPerSecond);
}

}  // namespace

std::string PlainReport(const Reading& reading) {
  std::string out;
  Add(&out, "time %s\n", TimeText(reading.time).c_str());
  Add(&out, "interval_ms %lld\n", reading.intervalMs);
  Add(&out, "cpu all used_percent %.1f\n", reading.busyFraction * 100);
  for (std::size_t i = 0; i < reading.processors.size(); ++i) {
    Add(&out, "cpu %zu used_percent %.1f\n", i, reading.processors[i] * 100);
  }
  AddPlainStorage("memory", reading.memory, &out);
  AddPlainStorage("swap", reading.swap, &out);
  for (const Traffic& each : reading.interfaces) AddPlainTraffic(each, &out);
  return out;
}

std::string JsonText(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += {'\\', c};
    } else if (c < ' ' || c > '~') {
      Add(&out, "\\u%04x", static_cast<unsigned int>(static_cast<unsigned char>(c)));
    } else {
      out += c;
    }
  }
  return out + '"';
}

std::string JsonReport(const Reading& reading) {
  std::string out;
  Add(&out, "{\"time\":\"%s\",\"interval_ms\":%lld,", TimeText(reading.time).c_str(),
      reading.intervalMs);
  Add(&out, "\"cpu\":{\"used_percent\":%.1f,\"each_used_percent\":[", reading.busyFraction * 100);
  const char* separator = "";
  for (const double processor : reading.processors) {
    Add(&out, "%s%.1f", separator, processor * 100);
    separator = ",";
  }
  out += "]},";
  AddJsonStorage("memory", reading.memory, &out);
  AddJsonStorage("swap", reading.swap, &out);
  out += "\"network\":[";
  separator = "";
  for (const Traffic& each : reading.interfaces) {
    out += separator;
    AddJsonTraffic(each, &out);
    separator = ",";
  }
  return out + "]}\n";
}

}  // namespace sysmon
