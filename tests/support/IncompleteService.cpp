#include <cstdint>

// An audio service library that lacks Service05, takes whatever it is given and never tells
// anything: its entries leave what they should answer as it is.
extern "C" std::int32_t Service01() {
    return 0;
}
extern "C" std::int32_t Service02() {
    return 1;
}
extern "C" [[gnu::alias("Service02")]] std::int32_t Service03();
extern "C" [[gnu::alias("Service02")]] std::int32_t Service04();
extern "C" [[gnu::alias("Service02")]] std::int32_t Service06();
extern "C" [[gnu::alias("Service02")]] std::int32_t Service07();
extern "C" [[gnu::alias("Service02")]] std::int32_t Service08();
