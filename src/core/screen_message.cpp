#include "core/screen_message.h"

namespace clockcomm::core {

std::string ScreenMessage(std::string_view format, const DateTime& now,
                          std::initializer_list<std::string_view> details) {
  std::string out;
  out.reserve(format.size() + 32);
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] == '{') {
      size_t close = format.find('}', i);
      if (close != std::string_view::npos && close > i + 1) {
        std::string_view number = format.substr(i + 1, close - i - 1);
        if (number.size() <= 3 &&
            number.find_first_not_of("0123456789") == std::string_view::npos) {
          size_t index = std::stoul(std::string(number));
          if (index == 0) {
            out += now.Format("yyyy-mm-dd HH:nn:ss");
            i = close;
            continue;
          }
          if (index <= details.size()) {
            out += *(details.begin() + (index - 1));
            i = close;
            continue;
          }
        }
      }
    }
    out += format[i];
  }
  return out;
}

}  // namespace clockcomm::core
