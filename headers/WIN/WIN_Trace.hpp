#pragma once

#include "WIN/WIN_DebugServer.hpp"

#include <string>
#include <type_traits>

namespace win {

/// Prints one piece of a trace: a text with PrintStr, what a function answers in place of the function, anything else
/// with PrintData.
template <typename Piece_t>
void PrintPiece(DebugServer_t& server, const Piece_t& piece) {
    if constexpr (std::is_convertible_v<const Piece_t&, const char*>) {
        server.PrintStr(piece);
    } else if constexpr (std::is_same_v<Piece_t, std::string>) {
        server.PrintStr(piece.c_str());
    } else if constexpr (std::is_invocable_v<const Piece_t&>) {
        PrintPiece(server, piece());
    } else {
        server.PrintData(piece);
    }
}

/// Prints the pieces of a trace, one print each. Switched off, it costs one test: nothing is formatted, and a piece
/// that takes work to make is handed over as a function, which is then not called. A text with a line end in it ends
/// the trace's line, so what follows belongs into a piece of its own. Any thread.
template <typename... Pieces_t>
void Trace(DebugServer_t& server, const Pieces_t&... pieces) {
    if (server.IsEnabled()) (PrintPiece(server, pieces), ...);
}

}  // namespace win
