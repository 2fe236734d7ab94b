package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.nio.charset.StandardCharsets;
import java.util.zip.CRC32;

/**
 * A partition of the calls in one generation of queues. All frames of a call go to the same partition.
 *
 * @param generation the generation of queues; 0 stands for the newest one at the time of the first connection
 * @param number the number of the partition, which is the routing key
 */
record Partition(int generation, int number) {
  /** The number of partitions; packaging/rabbitmq/definitions.py binds each of them to a queue. */
  static final int COUNT = 64;

  private static final int MAX_GENERATION = 1_000_000;

  /** Returns the partition of a call, which is the same on all machines. */
  static Partition of(String call, int generation) {
    CRC32 hash = new CRC32();
    hash.update(call.getBytes(StandardCharsets.UTF_8));
    return new Partition(generation, (int) (hash.getValue() % COUNT));
  }

  /** Returns a partition with numbers that were read from a file. */
  static Partition restored(int generation, int number) {
    return new Partition(Math.floorMod(generation, MAX_GENERATION), Math.floorMod(number, COUNT));
  }

  /** Returns a number that no other partition has. */
  long id() {
    return (long) generation * COUNT + number;
  }
}
