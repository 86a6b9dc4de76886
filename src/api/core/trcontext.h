#pragma once

#include <QByteArray>

// Translation context of a translatable text, taken from the signature of
// the function that reports it (Q_FUNC_INFO, i.e. GCC's __PRETTY_FUNCTION__).
//
// The context is the scope that qualifies the function's name:
//   "void PlayLogicBase::pause(const CMSetDataRequest&)"          -> "PlayLogicBase"
//   "CMReply<int> StreamerController::play(const ZuvoRoles&, bool)" -> "StreamerController"
//   "void A::B::f()"                                              -> "A::B"
//   "void Foo<T>::bar() [with T = int]"                           -> "Foo"
//   "void f(int)" (a free function)                               -> "f"
// Template arguments of the scope are dropped (a class template has one
// context for all its instances). The return type and the parameters may
// hold templates, function types, pointers and references; operators and
// conversion operators are recognised; the signature of a lambda names the
// enclosing function ("Foo::bar(int)::<lambda()>" -> "Foo"). Input without
// a parameter list is read as a bare qualified name ("A::B::f" -> "A::B").
// A null or blank signature gives an empty context. Any other input, however
// malformed, gives some substring of it and never reads out of bounds.
//
// Pure function, callable from any thread.
QByteArray trExtractContext(const char* functionSignature);
