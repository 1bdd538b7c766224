// Any sequence of reads, writes and seeks on the binary streams, in memory and on files, beside the plainest model of
// what they must do; and any text through the code pages.

#include "BIN/BIN_fstream.hpp"
#include "BIN/BIN_istream_iterator.hpp"
#include "BIN/BIN_stringstream.hpp"
#include "GLO/GLO_String.hpp"
#include "fuzz/Harness.hpp"
#include "fuzz/Input.hpp"

#include <algorithm>
#include <clocale>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <ios>
#include <string>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using fuzz::require;

const unsigned int gcCodePages[] = {glo::gcUtf8Encoding, glo::gcWindows1252Encoding, glo::gcAsciiEncoding, 7};

/// What a stream over these bytes must do.
struct Model {
    bool isFile = false;
    bool isOpen = true;
    bool isRead = true;
    bool isWritten = true;
    bool isAppended = false;  ///< each write goes to the end, wherever the position is
    Bytes bytes{};
    std::size_t readAt = 0;
    std::size_t writeAt = 0;
    bool isBad = false;
    bool fails = false;
    bool isAtEnd = false;

    std::size_t remaining() const { return bytes.size() - readAt; }
    bool hasFailed() const { return fails || isBad; }
    bin::ios::iostate state() const {
        return (isBad ? bin::ios::badbit : 0) | (fails ? bin::ios::failbit : 0) | (isAtEnd ? bin::ios::eofbit : 0);
    }

    bool readable() {
        if (!isOpen && isWritten) return false;  // no failure: see givesNothing()
        fails = fails || ((isAtEnd || !isOpen) && !isBad);
        return !hasFailed();
    }
    /// Without a file that is read and written, what goes through a value of another kind comes back as 0 or empty.
    bool givesNothing() const { return !isOpen && isWritten && !hasFailed(); }
    void advance(std::size_t n) {
        readAt += n;
        isAtEnd = isAtEnd || remaining() == 0;
    }
    bool read(void* to, std::size_t n) {
        if (n == 0 && !isWritten) fails = fails || !isBad;  // of files that are only read
        if (!readable()) return false;
        fails = n > remaining();
        if (fails) return false;
        std::copy_n(bytes.data() + readAt, n, static_cast<unsigned char*>(to));
        advance(n);
        return true;
    }
    bool text(std::string& to) {
        if (!readable()) return false;
        const auto zero = std::find(bytes.begin() + static_cast<long>(readAt), bytes.end(), 0);
        fails = zero == bytes.end();
        if (fails) return false;
        to.assign(bytes.begin() + static_cast<long>(readAt), zero);
        advance(to.size() + 1);
        return true;
    }
    void becomeBad() { isBad = isBad || !fails; }
    void write(const void* from, std::size_t n) {
        if (!isOpen && (n > 0 || isRead)) becomeBad();
        if (hasFailed() || (n == 0 && !isFile)) return;
        if (n > 0 && isAppended) writeAt = bytes.size();
        if (n > 0) bytes.resize(std::max(bytes.size(), writeAt + n));
        std::copy_n(static_cast<const unsigned char*>(from), n, bytes.begin() + static_cast<long>(n ? writeAt : 0));
        writeAt += n;
        if (isFile && isRead && remaining() > 0) isAtEnd = false;
    }
};

/// One stream and its model, which the input takes through the same steps.
template <typename Stream>
class Twins {
  public:
    static constexpr bool gcReads = std::is_base_of_v<bin::istream, Stream>;
    static constexpr bool gcWrites = std::is_base_of_v<bin::ostream, Stream>;
    static constexpr bool gcIsMemory = std::is_same_v<Stream, bin::stringstream>;

    Twins(Stream& stream, Model model, fuzz::Input& input) : mStream(stream), mModel(std::move(model)), mInput(input) {
        mModel.isAtEnd =
            mModel.isOpen && gcReads && !gcIsMemory && mModel.bytes.empty();  // an empty file says so at once
    }

    const Model& run() {
        for (int i = 0; i < 200 && !mInput.isAtEnd(); ++i) {
            const std::uint8_t choice = mInput.byte();
            if constexpr (!gcReads) {
                choice % 16 == 0 ? setState() : writeStep(choice % 13);
            } else if (!gcWrites || choice < 0xA0) {
                readStep(choice % 20);
            } else {
                writeStep(choice % 13);
            }
            compare();
        }
        return mModel;
    }

  private:
    void compare() {
        require(mStream.rdstate() == mModel.state(), "another state");
        if constexpr (gcReads) {
            require(mStream.tellg() == mModel.readAt, "another read position");
            require(mStream.RemainingSize() == mModel.remaining(), "another number of bytes remains");
        }
        if constexpr (gcWrites) require(mStream.tellp() == mModel.writeAt, "another write position");
    }

    template <typename T, typename Wire = T>
    void readScalar() {
        T value;
        std::memset(&value, 1, sizeof value);
        T expected = value;
        Wire wire{};
        constexpr bool gcIsConverted =
            std::is_same_v<T, bool> || std::is_same_v<T, long> || std::is_same_v<T, unsigned long>;
        if (mModel.read(&wire, sizeof wire) || (gcIsConverted && mModel.givesNothing())) {
            if constexpr (std::is_same_v<T, bool>)
                expected = wire != 0;
            else if constexpr (gcIsConverted)
                expected = static_cast<T>(wire & 0xFFFFFFFF);
            else
                expected = wire;
        }
        mStream >> value;
        require(std::memcmp(&value, &expected, sizeof value) == 0, "another scalar");
    }

    void readStep(unsigned kind) {
        switch (kind) {
            case 0:
                return readScalar<unsigned char>();
            case 1:
                return readScalar<bool, unsigned char>();
            case 2:
                return readScalar<short>();
            case 3:
                return readScalar<int>();
            case 4:
                return readScalar<long, std::uint64_t>();
            case 5:
                return readScalar<unsigned long long>();
            case 6:
                return readScalar<double>();
            case 7:
            case 8:
                return readText(kind == 7);
            case 9:
            case 10:
                return readBytes(kind == 9);
            case 11: {
                const std::uint8_t many = mInput.byte();
                const std::size_t n = many == 0xFF ? ~std::size_t{0} : many < 0x20 ? 0 : mInput.number() % 2500;
                mStream.ignore(n);
                if (n > 0 && mModel.readable()) mModel.advance(std::min(n, mModel.remaining()));
                return;
            }
            case 12: {
                std::string ignored;
                mStream.ignore_string();
                mModel.text(ignored);
                return;
            }
            case 13: {
                const bool isThere = mModel.state() == 0 && mModel.remaining() > 0;
                require(mStream.peek() == (isThere ? mModel.bytes[mModel.readAt] : -1), "another byte ahead");
                return;
            }
            case 14: {
                const std::size_t position = mInput.number() % (mModel.bytes.size() + 3);
                mStream.seekg(position);
                if (position > mModel.bytes.size())
                    mModel.fails = true;
                else
                    mModel.readAt = position;
                return;
            }
            case 15: {
                unsigned char byte = 0;
                mModel.read(&byte, 1);
                return require(mStream.get() == byte, "another byte");
            }
            case 16:
                return readScalar<unsigned long, std::uint64_t>();
            case 17:
                return seekFrom(mModel.readAt, [this](long offset, auto from, std::size_t target) {
                    mStream.seekg(offset, from);
                    mModel.fails = mModel.fails || target > mModel.bytes.size();
                    if (target <= mModel.bytes.size()) mModel.readAt = target;
                });
            default:
                setState();
        }
    }

    void setState() {
        const std::uint8_t state = mInput.byte() % 16;  // mostly none
        mModel.isBad = state == 1 || state == 2;
        mModel.fails = state == 3 || state == 4;
        mModel.isAtEnd = state == 2 || state == 4 || state == 5;
        mStream.clear(mModel.state());
    }

    /// Files are also sought in from somewhere else than their beginning.
    void seekFrom([[maybe_unused]] std::size_t current, [[maybe_unused]] auto seek) {
        if constexpr (!gcIsMemory) {
            const std::pair<std::ios_base::seekdir, std::size_t> bases[] = {
                {std::ios_base::beg, 0}, {std::ios_base::cur, current}, {std::ios_base::end, mModel.bytes.size()}};
            const auto& [from, base] = bases[mInput.byte() % std::size(bases)];
            long offset = mInput.number() % 4000 - 3000;
            if (offset > 500) offset = offset % 3 - 1 - static_cast<long>(base);  // just before the beginning and at it
            const long target = static_cast<long>(base) + offset;
            seek(offset, from, target < 0 ? std::string::npos : static_cast<std::size_t>(target));
        }
    }

    void readText(bool isWide) {
        std::string expected = mModel.givesNothing() ? "" : "untouched";
        mModel.text(expected);
        if (!isWide) {
            std::string text = "untouched";
            mStream >> text;
            return require(text == expected, "another text");
        }
        const unsigned int codePage = gcCodePages[mInput.byte() % std::size(gcCodePages)];
        std::wstring text = L"untouched";
        mStream.encodingg(codePage);
        mStream >> text;
        require(text == glo::wstring(expected, codePage), "another wide text");
    }

    void readBytes(bool isUpTo) {
        const std::size_t n = mInput.number() % 2500;
        const std::size_t count = isUpTo ? std::min(n, mModel.remaining()) : n;
        Bytes bytes(n), expected(n);
        const bool isRead = mModel.read(expected.data(), count);
        if (isUpTo) {
            mStream.read(reinterpret_cast<char*>(bytes.data()), n);
            require(mStream.gcount() == (isRead ? count : 0), "another count");
        } else {
            mStream.BinInput(bytes.data(), n);
        }
        require(bytes == expected, "other bytes");
    }

    template <typename T, typename Wire = T>
    void writeScalar() {
        Wire wire{};
        const Bytes raw = mInput.bytes(sizeof wire);
        std::copy(raw.begin(), raw.end(), reinterpret_cast<unsigned char*>(&wire));
        mStream << static_cast<T>(wire);
        if constexpr (std::is_same_v<T, long> || std::is_same_v<T, unsigned long>) wire &= 0xFFFFFFFF;
        mModel.write(&wire, sizeof wire);
    }

    void writeStep([[maybe_unused]] unsigned kind) {
        if constexpr (gcWrites) switch (kind) {
                case 0:
                    return writeScalar<unsigned short>();
                case 1:
                    return writeScalar<long, std::uint64_t>();
                case 2:
                    return writeScalar<long long>();
                case 3: {
                    const std::size_t size = mInput.number() % 2500;  // before the byte, with each compiler
                    const Bytes bytes(size, mInput.byte());
                    mStream.write(bytes.data(), bytes.size());
                    return mModel.write(bytes.data(), bytes.size());
                }
                case 4: {
                    const std::string text(mInput.byte() % 40, 'x');
                    mStream << text;
                    return mModel.write(text.c_str(), text.size() + 1);
                }
                case 5: {
                    const std::wstring text{static_cast<wchar_t>(mInput.number()), static_cast<wchar_t>(mInput.byte())};
                    const unsigned int codePage = gcCodePages[mInput.byte() % std::size(gcCodePages)];
                    mStream.encodingp(codePage);
                    mStream << text;
                    const std::string bytes = glo::string(text, codePage);
                    return mModel.write(bytes.c_str(), bytes.size() + 1);
                }
                case 6: {
                    const std::size_t position = mInput.number() % 4000;
                    mStream.seekp(position);
                    if (!gcReads && !mModel.isOpen) return mModel.becomeBad();
                    if (gcReads || !mModel.hasFailed()) mModel.writeAt = position;
                    if (gcIsMemory) mModel.bytes.resize(std::max(mModel.bytes.size(), position));
                    return;
                }
                case 7:
                    if constexpr (gcIsMemory) return;
                    return seekFrom(mModel.writeAt, [this](long offset, auto from, std::size_t target) {
                        mStream.seekp(offset, from);
                        if (!gcReads && !mModel.isOpen) return mModel.becomeBad();
                        if (!gcReads && mModel.hasFailed()) return;
                        if (target == std::string::npos)
                            mModel.fails = true;
                        else
                            mModel.writeAt = target;
                    });
                case 8:
                    return writeScalar<unsigned long, std::uint64_t>();
                case 9:
                    return writeScalar<signed char>();
                case 10: {
                    const unsigned char byte = mInput.byte();
                    mStream.put(byte);
                    return mModel.write(&byte, 1);
                }
                case 11: {
                    const unsigned char bit = mInput.byte() & 1;
                    mStream << (bit != 0) << "text";
                    mModel.write(&bit, 1);
                    return mModel.write("text", 5);
                }
                default:
                    const std::uint8_t byte = mInput.byte();
                    const Bytes bytes(20UL * mInput.byte(), byte);
                    if constexpr (gcIsMemory) {
                        mStream.fill(static_cast<char>(byte), bytes.size());
                        mModel.write(bytes.data(), bytes.size());
                    } else {
                        mStream.expand(bytes.size(), byte);
                        if (bytes.empty() || !mModel.isOpen || mModel.hasFailed()) return;
                        mModel.bytes.insert(mModel.bytes.end(), bytes.begin(), bytes.end());
                        mModel.isAtEnd = mModel.isAtEnd && !gcReads;
                    }
            }
    }

    Stream& mStream;
    Model mModel;
    fuzz::Input& mInput;
};

void tryIterator(const Bytes& bytes) {
    using Iterator = bin::istream_iterator<unsigned char>;
    bin::stringstream stream(bytes);
    Iterator it(stream);
    const Iterator end;
    require(end == Iterator() && !(it == it), "iterators on streams are equal, or two at the end are not");
    Bytes read;
    while (it != end) read.push_back(*it++);
    require(read == bytes && stream.rdstate() == bin::ios::eofbit, "not every byte to the end");
}

void tryMemory(fuzz::Input& input) {
    const Bytes bytes = input.bytes(input.byte());
    if (!bytes.empty()) tryIterator(bytes);
    bin::stringstream stream(bytes);
    const Model model = Twins(stream, {.bytes = bytes}, input).run();
    const bool isGood = stream.good();
    const Bytes rest(model.bytes.begin() + static_cast<long>(model.readAt), model.bytes.end());
    require(stream.Buffer() == model.bytes, "another buffer");
    const auto stateBefore = stream.rdstate();
    require(stream.TakeRemaining() == (isGood ? rest : Bytes()), "another rest");
    const auto expected = !isGood ? stateBefore : rest.empty() ? bin::ios::failbit : bin::ios::eofbit;
    require(stream.rdstate() == expected && stream.tellg() == (isGood ? model.bytes.size() : model.readAt),
            "not as if the rest had been read byte by byte");
}

/// A file of this process alone, in memory where there is a place for that.
const std::string& filePath() {
    static const std::string path = std::filesystem::temp_directory_path() / ("fuzz-" + std::to_string(getpid()));
    return path;
}

void requireContent(const std::wstring& path, const Bytes& bytes) {
    bin::ifstream stream(path);
    Bytes read(bytes.size());
    require(stream.size() == bytes.size(), "a file of another size");
    if (!read.empty()) stream.read(reinterpret_cast<char*>(read.data()), read.size());
    require(read == bytes, "another file");
}

void tryFile(fuzz::Input& input) {
    const std::wstring path = glo::wstring(filePath(), glo::gcUtf8Encoding);
    Bytes written;
    {
        const bool isAppended = input.byte() % 4 == 0;
        const auto how = isAppended ? std::ios_base::app : std::ios_base::trunc;
        bin::fstream stream(path, std::ios_base::in | std::ios_base::out | how);
        written = Twins(stream, {.isFile = true, .isAppended = isAppended}, input).run().bytes;
    }
    requireContent(path, written);
    fuzz::Input again = input;
    bin::ifstream stream(path);
    Twins(stream, {.isFile = true, .isWritten = false, .bytes = written}, again).run();
    stream.close();
    {
        bin::ofstream replacing(path);
        written = Twins(replacing, {.isFile = true, .isRead = false}, input).run().bytes;
    }
    requireContent(path, written);
    std::filesystem::remove(filePath());
}

/// Streams without a file: none was opened, or it could not be.
void tryClosed(fuzz::Input& input) {
    const std::wstring nowhere = glo::wstring(filePath(), glo::gcUtf8Encoding) + L"/no/such";
    bin::ifstream reader;
    bin::ofstream writer;
    bin::fstream both;
    const bool isTried = input.byte() % 2 == 0;
    if (isTried) {
        reader.open(nowhere);
        writer.open(nowhere);
        both.open(nowhere, std::ios_base::in | std::ios_base::out);
    }
    fuzz::Input second = input, third = input;
    Twins(reader, {.isFile = true, .isOpen = false, .isWritten = false, .isBad = isTried}, input).run();
    Twins(writer, {.isFile = true, .isOpen = false, .isRead = false, .isBad = isTried}, second).run();
    Twins(both, {.isFile = true, .isOpen = false, .isBad = isTried}, third).run();
}

/// Compares with the C library's own decoder, which knows what is UTF-8 and what is not.
void tryText(fuzz::Input& input) {
    static const bool isSet = std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
    require(isSet, "no UTF-8");
    const Bytes raw = input.rest();
    const std::string bytes(raw.begin(), raw.end());

    std::wstring expected;
    std::mbstate_t state{};
    bool isValid = true;
    for (std::size_t at = 0, taken = 0; at < bytes.size() && isValid; at += taken) {
        wchar_t character = 0;
        taken = std::mbrtowc(&character, bytes.data() + at, bytes.size() - at, &state);
        if (taken == 0) taken = 1;  // the 0 character
        isValid = taken <= bytes.size();
        expected += character;
    }
    const std::wstring decoded = glo::wstring(bytes, glo::gcUtf8Encoding);
    require(
        isValid == (decoded.find(L'\uFFFD') == std::wstring::npos) || bytes.find("\xEF\xBF\xBD") != std::string::npos,
        "taken for UTF-8, or not");
    const std::string encoded = glo::string(decoded, glo::gcUtf8Encoding);
    require(!isValid || (decoded == expected && encoded == bytes), "another text");
    require(glo::wstring(encoded, glo::gcUtf8Encoding) == decoded, "not the text that was written");

    require(glo::string(glo::wstring(bytes, glo::gcWindows1252Encoding), glo::gcWindows1252Encoding) == bytes,
            "a byte is lost");
    require(glo::wstring(bytes, glo::gcAsciiEncoding).size() == bytes.size(), "a character is lost");
    std::wstring wide(bytes.size() / sizeof(wchar_t), 0);
    std::memcpy(wide.data(), bytes.data(), wide.size() * sizeof(wchar_t));
    for (const unsigned int codePage : gcCodePages) {
        const std::string once = glo::string(wide, codePage);
        require(glo::string(glo::wstring(once, codePage), codePage) == once, "not the bytes that were written");
        for (const char c : bytes) static_cast<void>(glo::IsPrintable(static_cast<unsigned char>(c), codePage));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::traceIntoNothing();
    fuzz::Input input(data, size);
    switch (input.byte() % 5) {
        case 0:
            tryText(input);
            break;
        case 1:
            tryFile(input);
            break;
        case 2:
            tryClosed(input);
            break;
        default:
            tryMemory(input);
    }
    return 0;
}
