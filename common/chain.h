// Doubly linked chains of records that have `next` and `prev`: linking and unlinking, nothing else.
#pragma once

// In front of `before`, or at the tail (null).
template <class Node>
void chainLink(Node** head, Node** tail, Node* node, Node* before) {
    node->next = before;
    node->prev = before != nullptr ? before->prev : *tail;
    (node->prev != nullptr ? node->prev->next : *head) = node;
    (before != nullptr ? before->prev : *tail) = node;
}
template <class Node>
void chainUnlink(Node** head, Node** tail, Node* node) {
    (node->prev != nullptr ? node->prev->next : *head) = node->next;
    (node->next != nullptr ? node->next->prev : *tail) = node->prev;
}

// Chains without a tail: behind `after`, or at the head (null).
template <class Node>
void chainLink(Node** head, Node* node, Node* after) {
    node->prev = after;
    node->next = after != nullptr ? after->next : *head;
    (after != nullptr ? after->next : *head) = node;
    if (node->next != nullptr) node->next->prev = node;
}
template <class Node>
void chainUnlink(Node** head, Node* node) {
    (node->prev != nullptr ? node->prev->next : *head) = node->next;
    if (node->next != nullptr) node->next->prev = node->prev;
}
