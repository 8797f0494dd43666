#include <corvane/corvane.h>

#include <iostream>

int main() {
    for (const corvane::Model* model : corvane::models()) std::cout << model->id << '\n';
    return corvane::findModel("temperature-aoj20a") ? 0 : 1;
}
