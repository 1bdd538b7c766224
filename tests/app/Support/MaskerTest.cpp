// What a report says in place of a value, line by line.
#include "app/Support/Masker.hpp"

#include <gmock/gmock.h>

namespace {

TEST(Masker, ReplacesWholeWordsOfAnyCaseAndBytesInDumpsAcrossTheirRows) {
    Masker masker;
    masker.hide(Masker::Kind::User, "ann");
    masker.hide(Masker::Kind::User, "Ann Öberg");
    masker.hide(Masker::Kind::Home, "/home/ann/");
    masker.hide(Masker::Kind::Host, "ann-box");
    masker.hide(Masker::Kind::Serial, "SN_4815");
    masker.hide(Masker::Kind::Serial, "12");  // would take each 12 out of each line
    masker.learn("I | Device on port 1-2, serial number: QX77-1, Unit ID 3812345678.");
    masker.learn("iSerial=0");
    using Lines = std::vector<std::string>;
    const std::pair<Lines, Lines> cases[] = {
        {{"ANN planned a banner for Ann, ann2 and anna"}, {"<user-1> planned a banner for <user-1>, ann2 and anna"}},
        {{"Ann Öberg at ann-box.lan: /home/ann/x file:///home/ann"},
         {"<user-2> at <host-1>.lan: <home-1>/x file://<home-1>"}},
        {{"/home/anna/ann; usb-Maker_SN_4815_qx77-1-0:0"},
         {"/home/anna/<user-1>; usb-Maker_<serial-1>_<serial-2>-0:0"}},
        {{"unit 3812345678 is 0xE33BC74E, 43812345678 is not; 12 at 12:12"},
         {"unit <serial-3> is <serial-3>, 43812345678 is not; 12 at 12:12"}},
        {{"4ec73be3 e3:3b:c7:4e 53 4E 5f 34 38 31 35"}, {"<serial-3> <serial-3> <serial-1>"}},
        // From the end of one row into the next, small letters, wide characters, a number, a word in its bounds.
        {{"10:00:01: 0000: 14 00 00 41 4e 4e 00 4e c7 3b e3 00 00 53 6e 5f   ...ANN.N.;...Sn_",
          "0010: 34 38 31 35 61 6e 6e 61 53 00 4e 00 5f 00 34 00   4815annaS.N._.4.",
          "0020: 38 00 31 00 35 00                                 8.1.5."},
         {"10:00:01: 0000: 14 00 00 ** ** ** 00 ** ** ** ** 00 00 ** ** **   ...***.****..***  <user-1>  <serial-3>  "
          "<serial-1>",
          "0010: ** ** ** ** 61 6e 6e 61 ** ** ** ** ** ** ** **   ****anna********  <serial-1>  <serial-1>",
          "0020: ** ** ** ** ** **                                 ******  <serial-1>"}},
        // Packets whose data is a unit id that no line has named: one is cut short, one names no layer that there is.
        {{"0000: 00 00 00 00 06 00 00 00 04 00 00 00 01 02 41 04   ..............A.", "0010: 05 ",
          "0000: 09 00 00 00 26 00 00 00 04 00 00 00 01 02"},
         {"0000: 00 00 00 00 06 00 00 00 04 00 00 00 ** ** ** **   ............****", "0010: ** ",
          "0000: 09 00 00 00 26 00 00 00 04 00 00 00 ** **"}},
        // Two dumps, whose ends do not belong together.
        {{"0000: 53 4e 5f", "0000: 34 38 31 35"}, {"0000: 53 4e 5f", "0000: 34 38 31 35"}},
    };
    for (const auto& [lines, expected] : cases) {
        Lines masked;
        Masker::Lines stream(masker, [&](const std::string& line) { masked.push_back(line); });
        for (const std::string& line : lines) stream.add(line);
        stream.finish();
        EXPECT_THAT(masked, testing::ElementsAreArray(expected));
    }
}

}  // namespace
