// SPDX-License-Identifier: MIT
#pragma once

#include "support/TemporaryFolder.h"

#include <clocale>
#include <cstdlib>
#include <stdexcept>

namespace qmx::test
{

/// While one exists, the program's locale writes decimals with a comma, as German does.
class DecimalComma
{
public:
    DecimalComma()
    {
        // made here, because the machine may lack it; the messages are only about missing parts of the locale
        const std::string make = "localedef -i de_DE -f UTF-8 " + folder_.path("de_DE.UTF-8") + " >/dev/null 2>&1";
        if (std::system(make.c_str()) != 0 || setenv("LOCPATH", folder_.path("").c_str(), 1) != 0 ||
            !std::setlocale(LC_ALL, "de_DE.UTF-8"))
            throw std::runtime_error("no German locale (package locales)");
    }
    ~DecimalComma()
    {
        std::setlocale(LC_ALL, "C");
        unsetenv("LOCPATH");
    }
    DecimalComma(const DecimalComma&) = delete;
    DecimalComma& operator=(const DecimalComma&) = delete;

private:
    TemporaryFolder folder_;
};

} // namespace qmx::test
