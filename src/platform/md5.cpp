// MD5 digests over OpenSSL's libcrypto.
#include "platform/md5.h"

#include <openssl/evp.h>

#include <new>

namespace skeinkit2 {

md5_t::md5_t() : m_context(EVP_MD_CTX_new()) {
    if (!m_context || EVP_DigestInit_ex(m_context, EVP_md5(), nullptr) != 1) {
        EVP_MD_CTX_free(m_context);
        throw std::bad_alloc();
    }
}

md5_t::~md5_t() { EVP_MD_CTX_free(m_context); }

void md5_t::update(const std::string& text) { EVP_DigestUpdate(m_context, text.data(), text.size()); }

md5_t::digest_t md5_t::get_digest() const {
    digest_t digest{};
    EVP_MD_CTX* copy = EVP_MD_CTX_new();
    if (!copy)
        throw std::bad_alloc();
    unsigned int length = 0;
    if (EVP_MD_CTX_copy_ex(copy, m_context) == 1)
        EVP_DigestFinal_ex(copy, digest.data(), &length);
    EVP_MD_CTX_free(copy);
    return digest;
}

} // namespace skeinkit2
