#include "cli/ErrorReport.h"

#include <iostream>
#include <typeinfo>
#include <utility>

#include "base/QuelmUtilException.h"
#include "base/Traceback.h"
#include "base/UtilityErrorStream.h"

namespace quelm {

namespace {

// A null what() puts the stream into its bad state, so nothing after the parenthesis is printed; deliberate.
void reportFatal(const std::exception& exception) {
    errorStream << "Fatal error: " << readableTypeName(typeid(exception).name()) << "(" << exception.what()
                << ")" << std::endl;
    if (const auto* trace = dynamic_cast<const Traceback*>(&exception)) {
        trace->print(errorStream);
    }
}

} // namespace

int reportException(std::exception_ptr exception) {
    try {
        std::rethrow_exception(std::move(exception));
    } catch (const QuelmUtilException& failure) {
        std::cerr << failure.what() << std::endl;
        return 1;
    } catch (const std::exception& failure) {
        reportFatal(failure);
        return 1;
    } catch (...) {
        errorStream << "UNSPECIFIED ERROR OCCURED" << std::endl;
        return 2;
    }
}

} // namespace quelm
