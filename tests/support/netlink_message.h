// Builds route-netlink messages byte by byte.
#ifndef QIV_TESTS_SUPPORT_NETLINK_MESSAGE_H
#define QIV_TESTS_SUPPORT_NETLINK_MESSAGE_H

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace qiv::test {

/** A header that counts the whole message, a family's structure, and attributes. */
class NetlinkMessage {
 public:
  NetlinkMessage(std::uint16_t type, std::uint16_t flags, std::uint32_t sequence) {
    nlmsghdr header = {};
    header.nlmsg_type = type;
    header.nlmsg_flags = flags;
    header.nlmsg_seq = sequence;
    Append(&header, sizeof(header));
  }

  template <class T>
  NetlinkMessage& Add(const T& structure) {
    Append(&structure, sizeof(structure));
    return *this;
  }

  NetlinkMessage& AddAttribute(std::uint16_t type, const std::string& value) {
    const std::size_t begin = BeginAttribute(type);
    Append(value.data(), value.size());
    return EndAttribute(begin);
  }

  /** What is added between both stands inside the attribute. */
  std::size_t BeginAttribute(std::uint16_t type) {
    Fill();
    const std::size_t begin = m_bytes.size();
    const rtattr header = {0, type};
    Append(&header, sizeof(header));
    return begin;
  }
  NetlinkMessage& EndAttribute(std::size_t begin) {
    const auto length = static_cast<std::uint16_t>(m_bytes.size() - begin);
    std::memcpy(&m_bytes[begin], &length, sizeof(length));
    return *this;
  }

  /** The message as it is sent. */
  [[nodiscard]] std::string Bytes() const {
    std::string bytes = m_bytes;
    const auto length = static_cast<std::uint32_t>(bytes.size());
    std::memcpy(&bytes[0], &length, sizeof(length));
    return bytes;
  }

  /** The message with the filling that another one behind it needs. */
  [[nodiscard]] std::string FilledBytes() const {
    std::string bytes = Bytes();
    bytes.resize(NLMSG_ALIGN(bytes.size()));
    return bytes;
  }

 private:
  void Append(const void* bytes, std::size_t count) {
    m_bytes.append(static_cast<const char*>(bytes), count);
  }
  void Fill() { m_bytes.resize(NLMSG_ALIGN(m_bytes.size())); }

  std::string m_bytes;
};

}  // namespace qiv::test

#endif
