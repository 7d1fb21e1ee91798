// Turns expression trees into constraints. For now only the exception by which a
// reader tells that a model uses something this solver cannot express.
#ifndef ZELK_IMPL_AST_BUILDER_H
#define ZELK_IMPL_AST_BUILDER_H

#include <exception>
#include <string>

namespace zelk {

class AST_builder {
 public:
  class unsupported : public std::exception {
   public:
    explicit unsupported(std::string message) : m_message(std::move(message)) {}
    const char* what() const noexcept override { return m_message.c_str(); }

   private:
    std::string m_message;
  };
};

}  // namespace zelk

#endif
