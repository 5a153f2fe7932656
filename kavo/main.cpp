// kavo: the command around the simulator. Each verb is a file of verbs/.
#include <exception>
#include <iostream>

#include "kavo/basics/status.h"
#include "kavo/verbs/verbs.h"

int main(int count, char** words) {
    try {
        return static_cast<int>(kavo::companion::carry_out(count, words));
    } catch (const std::exception& problem) {
        std::cerr << "kavo: " << problem.what() << "\n";
        return static_cast<int>(kavo::companion::Status::bench);
    }
}
