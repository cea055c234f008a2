// SPDX-License-Identifier: MIT
// rms: prints the level of a second of the default input in decibels, from a tap that ends while the device runs on.
#include <QMXCoreAudio/qmx.h>
#include <atomic>
#include <cmath>
#include <iostream>
#include <numeric>
#include <thread>
int main()
{
    const auto fail = [](const qmx::Error& why) { return std::cerr << why.text() << '\n', 1; };
    const auto input = qmx::defaultInput();
    auto meter = input ? qmx::Meter::start(*input) : input.error(); // keeps the device running
    if (!meter)
        return fail(meter.error());
    std::atomic<double> energy = 0;
    std::atomic<std::size_t> count = 0;
    auto tap = input->onInput([&](std::span<const float> samples, unsigned) noexcept {
        energy += std::inner_product(samples.begin(), samples.end(), samples.begin(), 0.0);
        count += samples.size();
    });
    if (!tap)
        return fail(tap.error());
    while (tap->isRunning() && static_cast<double>(count) < input->inputChannels() * input->sampleRate())
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    tap = qmx::Error(qmx::cancelledStatus, "heard"); // nothing is added after this
    const std::size_t heard = count;
    std::cout << qmx::decibels(std::sqrt(energy / static_cast<double>(heard))) << " dB\n";
    return meter->isRunning() && heard == count ? 0 : 1;
}
