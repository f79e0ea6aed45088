// The LZFSE library as a file of the system's, loaded at the first manifest: most hooks read none.

#include "Platform/Platform.hpp"

#include <dlfcn.h>

namespace tidewrack {

const Lzfse& lzfse() {
    static const Lzfse library = [] {
        Lzfse loaded;
        void* handle = ::dlopen("liblzfse.so.1", RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr) return loaded;
        loaded.encode = reinterpret_cast<Lzfse::Function>(::dlsym(handle, "lzfse_encode_buffer"));
        loaded.decode = reinterpret_cast<Lzfse::Function>(::dlsym(handle, "lzfse_decode_buffer"));
        loaded.available = loaded.encode != nullptr && loaded.decode != nullptr;
        return loaded;
    }();
    return library;
}

} // namespace tidewrack
