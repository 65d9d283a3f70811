#pragma once
#include <string>

/// Checks that the vertices of an OBJ file have three coordinates: Assimp leaves the others out, and later faces get
/// other corners. Throws InputError with the number of the line, Interrupted.
/// @return what to read instead of the file; empty: the file. Assimp passes over lines that begin with a blank, does
/// not
///         count ".5" as a number, but the words of a comment behind coordinates, and continues a comment that ends
///         with a backslash: in it there is no such blank and no such comment, and the number is "0.5"
std::string check_obj(const std::string& path);
