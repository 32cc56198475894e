#pragma once

#include <iconv.h>

#include <stdexcept>
#include <string>

namespace utltest {

/// The C library's converter between two character sets, as an independent reference.
class Iconv {
  public:
    Iconv(char const* to, char const* from) : mConverter(iconv_open(to, from)) {
        if (mConverter == reinterpret_cast<iconv_t>(-1)) {
            throw std::runtime_error(std::string("no converter to ") + to + " from " + from);
        }
    }
    ~Iconv() { iconv_close(mConverter); }
    Iconv(Iconv const&) = delete;
    Iconv& operator=(Iconv const&) = delete;

    /// The converted text, or an empty one if the C library refuses it.
    std::string convert(std::string text) const {
        std::string result(4 * text.size() + 4, '\0');
        char* from = text.data();
        char* to = result.data();
        size_t left = text.size();
        size_t room = result.size();
        iconv(mConverter, nullptr, nullptr, nullptr, nullptr);
        if (iconv(mConverter, &from, &left, &to, &room) == static_cast<size_t>(-1)) {
            return "";
        }
        result.resize(result.size() - room);
        return result;
    }

  private:
    iconv_t mConverter;
};

}  // namespace utltest
