#pragma once

#include <gtest/gtest.h>
#include <iconv.h>

#include <string>

namespace utltest {

/// The C library's converter between two character sets, as an independent reference.
class Iconv {
  public:
    Iconv(char const* to, char const* from) : mConverter(iconv_open(to, from)) {
        EXPECT_NE(mConverter, reinterpret_cast<iconv_t>(-1)) << "no converter to " << to << " from " << from;
    }
    ~Iconv() { iconv_close(mConverter); }
    Iconv(Iconv const&) = delete;
    Iconv& operator=(Iconv const&) = delete;

    /// The converted text, or an empty one if the C library refuses it.
    std::string convert(std::string text) const {
        std::string result(4 * text.size() + 4, '\0');
        char* from = text.data();
        char* to = result.data();
        std::size_t left = text.size();
        std::size_t room = result.size();
        iconv(mConverter, nullptr, nullptr, nullptr, nullptr);
        if (iconv(mConverter, &from, &left, &to, &room) == static_cast<std::size_t>(-1)) {
            return "";
        }
        result.resize(result.size() - room);
        return result;
    }

  private:
    iconv_t mConverter;
};

}  // namespace utltest
