// MD5 digests over OpenSSL's libcrypto.
#ifndef KORVANE_PLATFORM_MD5_H
#define KORVANE_PLATFORM_MD5_H

#include <array>
#include <string>

namespace skeinkit2 {

class md5_t {
public:
    typedef std::array<unsigned char, 16> digest_t;

    md5_t();
    md5_t(const md5_t&) = delete;
    md5_t& operator=(const md5_t&) = delete;

    void update(const std::string& text);
    // The digest of everything given so far; more text may follow.
    digest_t get_digest() const;

private:
    // libcrypto's plain MD5 state, held in place: a digest per method read must
    // not cost an allocation and an algorithm fetch the way a digest context does.
    alignas(8) unsigned char m_state[128];
};

} // namespace skeinkit2

#endif
