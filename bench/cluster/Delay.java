import com.rabbitmq.client.AMQP;
import com.rabbitmq.client.Channel;
import com.rabbitmq.client.Connection;
import com.rabbitmq.client.ConnectionFactory;
import com.rabbitmq.client.DefaultConsumer;
import com.rabbitmq.client.Envelope;
import java.nio.ByteBuffer;
import java.util.Arrays;
import java.util.concurrent.CountDownLatch;

/** Consumes a queue as any recorder can, and tells how long after its capture a frame comes out: URI QUEUE FRAMES. */
public final class Delay {
  private static final int RTP = 2;
  private static final int CAPTURE_TIME = 5;

  public static void main(String[] arguments) throws Exception {
    ConnectionFactory factory = new ConnectionFactory();
    factory.setUri(arguments[0]);
    long[] delays = new long[Integer.parseInt(arguments[2])];
    CountDownLatch left = new CountDownLatch(delays.length);
    try (Connection connection = factory.newConnection()) {
      Channel channel = connection.createChannel();
      channel.basicQos(1000);
      channel.basicConsume(arguments[1], false, new DefaultConsumer(channel) {
        @Override
        public void handleDelivery(String tag, Envelope envelope, AMQP.BasicProperties properties, byte[] body)
            throws java.io.IOException {
          long now = System.currentTimeMillis() * 1000;
          long captured = 0;
          ByteBuffer in = ByteBuffer.wrap(body);
          for (int at = 0; at < body.length; at += in.getShort(at) & 0xffff) {
            if (in.get(at + 2) == CAPTURE_TIME) {
              captured = in.getLong(at + 15);
            } else if (in.get(at + 2) == RTP && left.getCount() > 0) {
              delays[delays.length - (int) left.getCount()] = now - captured;
              left.countDown();
            }
          }
          channel.basicAck(envelope.getDeliveryTag(), false);
        }
      });
      System.out.println("consuming");
      left.await();
    }
    Arrays.sort(delays);
    System.out.printf(
        "delay from wire to recorder: %d ms in the middle, %d ms for 99 %% of the frames, %d ms at most%n",
        delays[delays.length / 2] / 1000, delays[delays.length * 99 / 100] / 1000, delays[delays.length - 1] / 1000);
  }
}
