// tests/support/sure_answer.h
//
// What an oracle says of a ray and a primitive.
#pragma once

/// Floats have three answers; `close`: too close to call.
enum class SureAnswer { missed, hit, close };
