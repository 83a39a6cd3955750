// MD5 digests over OpenSSL's libcrypto.
// The plain MD5 calls are kept by libcrypto 3 for compatibility; this level asks for them without warnings.
#define OPENSSL_API_COMPAT 10101
#include "platform/md5.h"

#include <openssl/md5.h>

#include <new>

namespace skeinkit2 {

namespace {

static_assert(sizeof(MD5_CTX) <= 128, "the MD5 state must fit the room md5_t keeps for it");

MD5_CTX& stateIn(unsigned char* room) { return *reinterpret_cast<MD5_CTX*>(room); }
const MD5_CTX& stateIn(const unsigned char* room) { return *reinterpret_cast<const MD5_CTX*>(room); }

} // namespace

md5_t::md5_t() { MD5_Init(new (m_state) MD5_CTX); }

void md5_t::update(const std::string& text) { MD5_Update(&stateIn(m_state), text.data(), text.size()); }

md5_t::digest_t md5_t::get_digest() const {
    digest_t digest{};
    MD5_CTX copy = stateIn(m_state);
    MD5_Final(digest.data(), &copy);
    return digest;
}

} // namespace skeinkit2
