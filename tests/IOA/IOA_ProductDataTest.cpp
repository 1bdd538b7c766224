#include "IOA/IOA_ProductData.hpp"

#include <gtest/gtest.h>

#include "IOL/IOL_Exception.hpp"

namespace {

using Texts = std::vector<std::wstring>;

std::vector<unsigned char> Payload(std::string const& text) {
    return {text.begin(), text.end()};
}

TEST(ProductData, WhateverTheDeviceSendsIsTakenOrABadFrame) {
    using namespace std::string_literals;
    std::string const numbers = "\x07\x01\xFE\xFF";
    std::vector<std::pair<std::string, Texts>> const cases = {
        {numbers, {}},
        {numbers + "Model \xC3\xA9\0\0second\0"s, {L"Model \u00E9", L"", L"second"}},
        {numbers + "one\0cut"s, {L"one"}},             // no closing 0
        {numbers + "\xFF\xC3\0"s, {L"\uFFFD\uFFFD"}},  // no UTF-8
    };
    for (auto const& [payload, descriptions] : cases) {
        ioa::ProductData_t data;
        data.AcceptFrame(iol::Frame_t(255, Payload(payload)));
        EXPECT_EQ(data.productId, 263);
        EXPECT_EQ(data.softwareVersion, -2);
        EXPECT_EQ(data.descriptions, descriptions);
        ioa::ProductDataExt_t extended;
        extended.AcceptFrame(iol::Frame_t(248, Payload(payload.substr(4))));
        EXPECT_EQ(extended.descriptions, descriptions);
    }
    EXPECT_THROW(ioa::ProductData_t().AcceptFrame(iol::Frame_t(255, Payload("\x07\x01\xFE"))), iol::BadFrame_t);
    ioa::ProductData_t sent;
    sent.productId = 0x4241;
    sent.descriptions = {L"x", L""};
    EXPECT_EQ(sent.ProduceFrame().Bytes(), Payload("AB\0\0x\0\0"s));
}

TEST(ProductData, DisplayNameEndsAtTheSoftwareVersion) {
    std::vector<std::pair<Texts, std::wstring>> const cases = {
        {{}, L""},
        {{L"Model Software Version 3.10", L"Other Software"}, L"Model"},
        {{L"Model software version 3.10"}, L"Model"},
        {{L"Model software and Software"}, L"Model software and"},  // the capital one is looked for first
        {{L"Model Beta Software Version 2.30"}, L"Model Beta"},
        {{L"Software"}, L"Software"},
        {{L" Software"}, L""},
    };
    for (auto const& [descriptions, name] : cases) {
        ioa::ProductData_t data;
        data.descriptions = descriptions;
        EXPECT_EQ(data.DisplayName(), name);
    }
}

}  // namespace
