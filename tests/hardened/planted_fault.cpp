// planted_fault KIND: does one thing that the hardened run has to see, and ends normally if it goes unseen.

#include <climits>
#include <cstdlib>
#include <string_view>
#include <vector>

int main(int count, char** arguments) {
    const std::string_view kind = count == 2 ? arguments[1] : "";
    // What the compiler cannot know, it can neither warn of nor leave out.
    volatile int three = 3;
    if (kind == "overrun" || kind == "use after free") {
        volatile char* volatile block = static_cast<char*>(std::malloc(40));
        if (block == nullptr) return EXIT_FAILURE;
        if (kind == "overrun") block[37 + three] = 1;
        std::free(const_cast<char*>(block));
        if (kind == "use after free") block[17 + three] = 1;
        // The next call sees it.
        block = static_cast<char*>(std::malloc(40));
        std::free(const_cast<char*>(block));
    } else if (kind == "signed overflow") {
        three = INT_MAX - 2 + three;
    } else if (kind == "index") {
        const std::vector<int> values(2);
        three = values[static_cast<size_t>(three)];
    } else {
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
