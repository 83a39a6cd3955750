// MD5 digests over OpenSSL's libcrypto.
#ifndef KORVANE_PLATFORM_MD5_H
#define KORVANE_PLATFORM_MD5_H

#include <array>
#include <string>

typedef struct evp_md_ctx_st EVP_MD_CTX;

namespace skeinkit2 {

class md5_t {
public:
    typedef std::array<unsigned char, 16> digest_t;

    md5_t();
    ~md5_t();
    md5_t(const md5_t&) = delete;
    md5_t& operator=(const md5_t&) = delete;

    void update(const std::string& text);
    // The digest of everything given so far; more text may follow.
    digest_t get_digest() const;

private:
    EVP_MD_CTX* m_context;
};

} // namespace skeinkit2

#endif
